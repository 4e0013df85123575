// `tarvik canvas`: draws strokes from a JSON file with the reporter's drawing canvas, fed as
// touches, and writes what the canvas baked as a PNG with alpha.

#include "Command.h"

#include "Kit/UIApplication.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Platform/Runtime.h"
#include "Views/TVKQuadDrawView.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarvik::tool {

namespace {

struct Stroke {
    Color color = Color::colorWithRed(0, 0, 0, 1);
    bool eraser = false;
    std::vector<Point> points;
};

// A problem with the strokes file, said in a way its author can act on.
struct BadStrokes : std::runtime_error {
    using std::runtime_error::runtime_error;
};

double number(const nlohmann::json& value, const std::string& what) {
    if (!value.is_number()) {
        throw BadStrokes(what + " is not a number");
    }
    return value.get<double>();
}

Stroke readStroke(const nlohmann::json& entry, size_t index) {
    std::string name = "stroke " + std::to_string(index + 1);
    if (!entry.is_object()) {
        throw BadStrokes(name + " is not an object");
    }
    Stroke stroke;
    if (entry.contains("color")) {
        const nlohmann::json& color = entry["color"];
        if (!color.is_array() || color.size() != 4) {
            throw BadStrokes(name + ": \"color\" is not [R, G, B, A]");
        }
        double components[4];
        for (size_t i = 0; i < 4; ++i) {
            components[i] = number(color[i], name + ": a colour component");
            if (components[i] < 0 || components[i] > 255) {
                throw BadStrokes(name + ": colour components go from 0 to 255");
            }
        }
        stroke.color = Color::colorWithRed(components[0] / 255, components[1] / 255,
                                           components[2] / 255, components[3] / 255);
    }
    if (entry.contains("eraser")) {
        if (!entry["eraser"].is_boolean()) {
            throw BadStrokes(name + ": \"eraser\" is not true or false");
        }
        stroke.eraser = entry["eraser"].get<bool>();
    }
    const nlohmann::json* points = entry.contains("points") ? &entry["points"] : nullptr;
    if (!points || !points->is_array() || points->empty()) {
        throw BadStrokes(name + " has no points");
    }
    for (const nlohmann::json& point : *points) {
        if (!point.is_array() || point.size() != 2) {
            throw BadStrokes(name + ": a point is not [x, y]");
        }
        stroke.points.push_back({number(point[0], name + ": x"), number(point[1], name + ": y")});
    }
    return stroke;
}

std::vector<Stroke> readStrokes(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw BadStrokes("cannot read " + path);
    }
    nlohmann::json document = nlohmann::json::parse(file, nullptr, false);
    if (document.is_discarded()) {
        throw BadStrokes(path + " is not JSON");
    }
    if (!document.is_object() || !document.contains("strokes") || !document["strokes"].is_array()) {
        throw BadStrokes(path + " has no \"strokes\" array");
    }
    std::vector<Stroke> strokes;
    for (size_t i = 0; i < document["strokes"].size(); ++i) {
        strokes.push_back(readStroke(document["strokes"][i], i));
    }
    return strokes;
}

// "WxH" with both positive.
std::optional<Size> parseSize(const std::string& text) {
    double width = 0, height = 0;
    char separator = 0;
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%lf%c%lf%n", &width, &separator, &height, &consumed) != 3 ||
        separator != 'x' || consumed != static_cast<int>(text.size()) || !(width > 0) ||
        !(height > 0)) {
        return std::nullopt;
    }
    return Size{width, height};
}

// Down at the first point, through the rest, up at the last; one point is a tap.
void drawStroke(const Stroke& stroke, TVKQuadDrawView& canvas,
                const std::shared_ptr<UIWindow>& window) {
    canvas.setStrokeColor(stroke.color);
    canvas.setEraserModeEnabled(stroke.eraser);
    UIApplication& application = UIApplication::sharedApplication();
    application.handleTouch(window, 1, UITouchPhase::Began, stroke.points.front());
    for (size_t i = 1; i < stroke.points.size(); ++i) {
        application.handleTouch(window, 1, UITouchPhase::Moved, stroke.points[i]);
    }
    application.handleTouch(window, 1, UITouchPhase::Ended, stroke.points.back());
}

}  // namespace

int canvasCommand(const Arguments& arguments) {
    const char* usage = "usage: tarvik canvas --size WxH --scale S --strokes FILE --out PNG\n";
    std::string size, scale, strokesPath, outPath;
    for (size_t i = 0; i + 1 < arguments.size(); i += 2) {
        const std::string& option = arguments[i];
        std::string* target = option == "--size"      ? &size
                              : option == "--scale"   ? &scale
                              : option == "--strokes" ? &strokesPath
                              : option == "--out"     ? &outPath
                                                      : nullptr;
        if (!target) {
            break;
        }
        *target = arguments[i + 1];
    }
    if (arguments.size() != 8 || size.empty() || scale.empty() || strokesPath.empty() ||
        outPath.empty()) {
        std::fprintf(stderr, "%s", usage);
        return 2;
    }
    std::optional<Size> canvasSize = parseSize(size);
    if (!canvasSize) {
        std::fprintf(stderr, "tarvik: the size must be WIDTHxHEIGHT, both positive: %s\n",
                     size.c_str());
        return 1;
    }
    std::optional<double> screenScale = parseScale(scale);
    if (!screenScale) {
        std::fprintf(stderr, "tarvik: the scale must be a positive number: %s\n", scale.c_str());
        return 1;
    }
    std::vector<Stroke> strokes;
    try {
        strokes = readStrokes(strokesPath);
    } catch (const BadStrokes& problem) {
        std::fprintf(stderr, "tarvik: %s\n", problem.what());
        return 1;
    }

    // The canvas bakes at the screen's scale.
    auto* screen = dynamic_cast<DesktopScreenMetrics*>(&Runtime::current().platform().screen());
    if (!screen) {
        std::fprintf(stderr, "tarvik: this platform's screen scale cannot be set\n");
        return 1;
    }
    screen->set({{0, 0}, *canvasSize}, *screenScale);
    Rect bounds{{0, 0}, *canvasSize};
    auto window = std::make_shared<UIWindow>(bounds);
    auto canvas = std::make_shared<TVKQuadDrawView>(bounds);
    window->addSubview(canvas);
    window->setHidden(false);
    for (const Stroke& stroke : strokes) {
        drawStroke(stroke, *canvas, window);
    }
    std::optional<Image> drawn = canvas->drawnImage();
    if (!drawn) {  // no strokes: nothing drawn on a transparent canvas
        drawn =
            Image::blank(canvasSize->width, canvasSize->height, *screenScale, Image::Transparent);
    }
    if (!drawn) {
        std::fprintf(stderr, "tarvik: no bitmap of %s points at scale %s can be made\n",
                     size.c_str(), scale.c_str());
        return 1;
    }
    std::optional<Data> png = drawn->pngRepresentation();
    std::ofstream out(outPath, std::ios::binary);
    if (!png || !out.write(reinterpret_cast<const char*>(png->data()),
                           static_cast<std::streamsize>(png->size()))) {
        std::fprintf(stderr, "tarvik: cannot write %s\n", outPath.c_str());
        return 1;
    }
    return 0;
}

}  // namespace tarvik::tool
