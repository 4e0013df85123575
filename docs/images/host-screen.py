#!/usr/bin/python3
"""Draws the sample app screen the reporter's pictures in docs/ are made over: a shopping cart
whose total is wrong, 375 x 667 points at scale 2. Usage: host-screen.py OUT.png"""

import sys

import cairo

SCALE = 2
surface = cairo.ImageSurface(cairo.FORMAT_RGB24, 375 * SCALE, 667 * SCALE)
c = cairo.Context(surface)
c.scale(SCALE, SCALE)
c.set_source_rgb(0.97, 0.97, 0.98)
c.paint()
c.set_source_rgb(0.13, 0.45, 0.40)
c.rectangle(0, 0, 375, 64)
c.fill()
c.select_font_face("Nimbus Sans", cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD)
c.set_font_size(18)
c.set_source_rgb(1, 1, 1)
c.move_to(16, 48)
c.show_text("Your cart")

items = [("Espresso beans, 1 kg", "24.90"), ("Milk frother", "39.00"),
         ("Ceramic cup, set of 2", "18.50"), ("Descaler", "7.90")]
y = 84
for name, price in items:
    c.set_source_rgb(1, 1, 1)
    c.rectangle(12, y, 351, 72)
    c.fill()
    c.set_source_rgb(0.80, 0.86, 0.84)
    c.rectangle(24, y + 12, 48, 48)
    c.fill()
    c.set_source_rgb(0.15, 0.17, 0.2)
    c.select_font_face("Nimbus Sans", cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_NORMAL)
    c.set_font_size(15)
    c.move_to(86, y + 32)
    c.show_text(name)
    c.set_source_rgb(0.45, 0.48, 0.52)
    c.set_font_size(13)
    c.move_to(86, y + 52)
    c.show_text("Qty 1")
    c.set_source_rgb(0.15, 0.17, 0.2)
    c.set_font_size(15)
    extent = c.text_extents(price)
    c.move_to(351 - extent.x_advance, y + 42)
    c.show_text(price)
    y += 84

c.select_font_face("Nimbus Sans", cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD)
c.set_font_size(20)
c.move_to(16, y + 40)
c.show_text("Total")
extent = c.text_extents("0.00")
c.move_to(359 - extent.x_advance, y + 40)
c.show_text("0.00")
c.set_source_rgb(0.13, 0.45, 0.40)
c.rectangle(16, 580, 343, 52)
c.fill()
c.set_source_rgb(1, 1, 1)
c.set_font_size(17)
extent = c.text_extents("Checkout")
c.move_to(187.5 - extent.x_advance / 2, 612)
c.show_text("Checkout")
surface.write_to_png(sys.argv[1])
