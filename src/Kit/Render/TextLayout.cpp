#include "Kit/Render/TextLayout.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace tarvik {

namespace {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* pointer) const { Free(pointer); }
};
using FontDescription = std::unique_ptr<PangoFontDescription,
                                        Deleter<PangoFontDescription, pango_font_description_free>>;

double fromPango(int units) {
    return static_cast<double>(units) / PANGO_SCALE;
}
int toPango(double points) {
    return static_cast<int>(std::lround(points * PANGO_SCALE));
}

// One Pango context per thread (the toolkit draws on the main queue; tools and tests may use
// other threads), set for positions that do not depend on the device: no hinting, no rounding.
PangoContext* sharedContext() {
    struct ContextHolder {
        PangoContext* context = nullptr;
        ~ContextHolder() {
            if (context) {
                g_object_unref(context);
            }
        }
    };
    thread_local ContextHolder holder;
    if (!holder.context) {
        PangoFontMap* fontMap = pango_cairo_font_map_get_default();
        holder.context = pango_font_map_create_context(fontMap);
        cairo_font_options_t* options = cairo_font_options_create();
        cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
        cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
        pango_cairo_context_set_font_options(holder.context, options);
        cairo_font_options_destroy(options);
        pango_context_set_round_glyph_positions(holder.context, FALSE);
    }
    return holder.context;
}

FontDescription describe(const UIFont& font) {
    FontDescription description(pango_font_description_new());
    pango_font_description_set_family(description.get(), font.familyName().c_str());
    pango_font_description_set_weight(description.get(),
                                      font.isBold() ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    // Absolute size: user units are points, whatever resolution Pango assumes.
    pango_font_description_set_absolute_size(description.get(), font.pointSize() * PANGO_SCALE);
    return description;
}

guint16 channel(double component) {
    return static_cast<guint16>(std::lround(std::clamp(component, 0.0, 1.0) * 65535));
}

void insertRunAttributes(PangoAttrList* list, const std::string& text,
                         const NSAttributedString::Run& run) {
    const auto start = static_cast<guint>(utf8OffsetOfUtf16Index(text, run.range.location));
    const auto end = static_cast<guint>(utf8OffsetOfUtf16Index(text, run.range.end()));
    const auto insert = [&](PangoAttribute* attribute) {
        attribute->start_index = start;
        attribute->end_index = end;
        pango_attr_list_insert(list, attribute);
    };
    if (run.attributes.font) {
        insert(pango_attr_font_desc_new(describe(*run.attributes.font).get()));
    }
    if (const auto& color = run.attributes.foregroundColor) {
        insert(pango_attr_foreground_new(channel(color->red()), channel(color->green()),
                                         channel(color->blue())));
        insert(pango_attr_foreground_alpha_new(channel(color->alpha())));
    }
}

PangoAlignment pangoAlignment(NSTextAlignment alignment) {
    switch (alignment) {
        case NSTextAlignment::Center:
            return PANGO_ALIGN_CENTER;
        case NSTextAlignment::Right:
            return PANGO_ALIGN_RIGHT;
        default:
            return PANGO_ALIGN_LEFT;
    }
}

}  // namespace

TextLayout::TextLayout(const NSAttributedString& text, const TextStyle& style, double width,
                       double height)
    : text_(text.string()), color_(style.color), layout_(pango_layout_new(sharedContext())) {
    pango_layout_set_text(layout_, text_.c_str(), static_cast<int>(text_.size()));
    pango_layout_set_font_description(layout_, describe(style.font).get());

    PangoAttrList* attributes = pango_attr_list_new();
    // Every line box is the base font's line height; Pango shares the extra space above and
    // below the glyphs.
    pango_attr_list_insert(attributes,
                           pango_attr_line_height_new_absolute(toPango(style.font.lineHeight())));
    for (const auto& run : text.runs()) {
        insertRunAttributes(attributes, text_, run);
    }
    pango_layout_set_attributes(layout_, attributes);
    pango_attr_list_unref(attributes);

    const NSTextAlignment alignment = text.attributesAtIndex(0).alignment.value_or(style.alignment);
    pango_layout_set_alignment(layout_, pangoAlignment(alignment));
    pango_layout_set_justify(layout_, alignment == NSTextAlignment::Justified);
    if (width > 0) {
        pango_layout_set_width(layout_, toPango(width));
        pango_layout_set_wrap(layout_, PANGO_WRAP_WORD_CHAR);
    }
    if (style.numberOfLines > 0) {
        pango_layout_set_height(layout_, -style.numberOfLines);
        pango_layout_set_ellipsize(layout_, PANGO_ELLIPSIZE_END);
    }
    if (height > 0 && size().height > height) {
        pango_layout_set_height(layout_, toPango(height));
        pango_layout_set_ellipsize(layout_, PANGO_ELLIPSIZE_END);
        if (size().height > height) {
            keepParagraphsWithin(height);
        }
    }
}

void TextLayout::keepParagraphsWithin(double height) {
    // Pango keeps at least one line of every paragraph, whatever the height: the text is cut
    // before the first line that does not fit (the first line always stays), and ends in an
    // ellipsis, which Pango moves into the last line that fits when it wraps.
    PangoLayoutIter* iter = pango_layout_get_iter(layout_);
    int cut = -1;
    bool first = true;
    do {
        PangoRectangle logical;
        pango_layout_iter_get_line_extents(iter, nullptr, &logical);
        if (!first && fromPango(logical.y + logical.height) > height) {
            cut = pango_layout_iter_get_index(iter);
            break;
        }
        first = false;
    } while (pango_layout_iter_next_line(iter));
    pango_layout_iter_free(iter);
    if (cut < 0) {
        return;
    }
    text_.resize(static_cast<std::size_t>(cut));
    while (!text_.empty() && (text_.back() == '\n' || text_.back() == '\r')) {
        text_.pop_back();
    }
    text_ += "\u2026";
    pango_layout_set_text(layout_, text_.c_str(), static_cast<int>(text_.size()));
}

TextLayout::~TextLayout() {
    g_object_unref(layout_);
}

Size TextLayout::size() const {
    PangoRectangle logical;
    pango_layout_get_extents(layout_, nullptr, &logical);
    return {fromPango(logical.width), fromPango(logical.height)};
}

int TextLayout::lineCount() const {
    return pango_layout_get_line_count(layout_);
}

void TextLayout::draw(cairo_t* context, Point origin) const {
    cairo_save(context);
    color_.setAsSourceIn(context);
    cairo_move_to(context, origin.x, origin.y);
    pango_cairo_show_layout(context, layout_);
    cairo_restore(context);
}

Rect TextLayout::caretRectForIndex(std::size_t index) const {
    PangoRectangle strong;
    const auto byte = static_cast<int>(utf8OffsetOfUtf16Index(text_, index));
    pango_layout_get_cursor_pos(layout_, byte, &strong, nullptr);
    return {{fromPango(strong.x), fromPango(strong.y)}, {0, fromPango(strong.height)}};
}

std::size_t TextLayout::indexAtPoint(Point point) const {
    int byte = 0;
    int trailing = 0;
    pango_layout_xy_to_index(layout_, toPango(point.x), toPango(point.y), &byte, &trailing);
    const char* start = text_.c_str();
    const char* position = start + byte;
    for (; trailing > 0 && *position; --trailing) {
        position = g_utf8_next_char(position);
    }
    return utf16Length(
        std::string_view(text_).substr(0, static_cast<std::size_t>(position - start)));
}

FontMetrics metricsOfFont(const UIFont& font) {
    PangoFontMetrics* metrics =
        pango_context_get_metrics(sharedContext(), describe(font).get(), nullptr);
    const FontMetrics result{fromPango(pango_font_metrics_get_ascent(metrics)),
                             fromPango(pango_font_metrics_get_descent(metrics))};
    pango_font_metrics_unref(metrics);
    return result;
}

}  // namespace tarvik

namespace tarvik {

std::string loadedFamilyOfFont(const UIFont& font) {
    PangoFont* loaded = pango_context_load_font(sharedContext(), describe(font).get());
    if (!loaded) {
        return {};
    }
    const FontDescription description(pango_font_describe(loaded));
    g_object_unref(loaded);
    const char* family = pango_font_description_get_family(description.get());
    return family ? family : "";
}

}  // namespace tarvik
