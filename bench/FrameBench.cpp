// Frames of the screenshot editor on a 430 x 932 point screen at scale 3 (1290 x 2796 pixels):
// a window holding the screenshot, two tool bars and the drawing canvas, with a stroke in
// progress. Side by side: a damaged-region frame after the finger moved (it repaints the new
// curve only) and a full repaint of the same window. A third run draws strokes with a frame
// after every move and reports the peak memory beyond the screenshot, in full-screen bitmaps.
//
// Two measures of memory: the peak resident memory (what the bitmaps' touched pages really
// cost), and the peak count of live full-screen image surfaces, counted by this executable's
// own cairo_image_surface_create, which the SDK's code (linked statically) calls instead of
// Cairo's and which hands on to Cairo's. Surfaces Cairo makes inside itself (groups) are not
// counted by the second measure; the first sees them. A bitmap that is made but little drawn
// into costs few resident pages while it comes fresh from the kernel; run after other
// benchmarks, the allocator may hand it out of memory it keeps and clear it all, so the
// resident figure is between the touched pages and the whole bitmaps.
#include "Kit/Render/FrameRenderer.h"
#include "Kit/Render/SoftwareRenderer.h"
#include "Kit/UIApplication.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKQuadDrawView.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

namespace {

int liveScreenSurfaces = 0;
int peakScreenSurfaces = 0;
cairo_user_data_key_t countedKey;

}  // namespace

extern "C" cairo_surface_t* cairo_image_surface_create(cairo_format_t format, int width,
                                                       int height) {
    using Create = cairo_surface_t* (*)(cairo_format_t, int, int);
    static auto cairoCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, __func__));
    cairo_surface_t* surface = cairoCreate(format, width, height);
    if (width == 1290 && height == 2796 && cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS) {
        peakScreenSurfaces = std::max(peakScreenSurfaces, ++liveScreenSurfaces);
        // Cairo calls the destroy function only for data that is not null.
        cairo_surface_set_user_data(surface, &countedKey, &countedKey,
                                    [](void*) { --liveScreenSurfaces; });
    }
    return surface;
}

namespace {

using namespace tarvik;
using tarvik::testing::TestRuntime;

constexpr Size kScreen{430, 932};
constexpr double kScale = 3;
constexpr double kBitmapBytes = 1290.0 * 2796 * 4;

// The screenshot: an image of the whole screen, drawn at its size.
class ScreenshotView : public UIView {
  public:
    ScreenshotView(Rect frame, Image image) : UIView(frame), image_(std::move(image)) {}
    void drawRect(cairo_t* context, Rect) override {
        cairo_set_source_surface(context, image_.surface(), 0, 0);
        cairo_paint(context);
    }

  private:
    Image image_;
};

Image screenshot() {
    return *Image::render(kScreen.width, kScreen.height, kScale, Image::Opaque, [](cairo_t* cr) {
        cairo_pattern_t* gradient = cairo_pattern_create_linear(0, 0, 0, kScreen.height);
        cairo_pattern_add_color_stop_rgb(gradient, 0, 0.95, 0.95, 0.97);
        cairo_pattern_add_color_stop_rgb(gradient, 1, 0.75, 0.8, 0.9);
        cairo_set_source(cr, gradient);
        cairo_paint(cr);
        cairo_pattern_destroy(gradient);
        for (int row = 0; row < 14; ++row) {  // list rows of a host app
            cairo_set_source_rgb(cr, 0.2, 0.2, 0.25);
            cairo_rectangle(cr, 20, 80 + row * 56, 200 + (row * 37) % 150, 14);
            cairo_fill(cr);
        }
    });
}

std::shared_ptr<UIView> toolBar(Rect frame, int buttons) {
    auto bar = std::make_shared<UIView>(frame);
    bar->setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
    bar->setLayerStyle({Color::colorWithRed(0.8, 0.8, 0.8, 1), 1, 8});
    bar->setClipsToBounds(true);
    for (int i = 0; i < buttons; ++i) {
        auto button = std::make_shared<UIView>(Rect{{8 + i * 44.0, 8}, {32, 32}});
        button->setBackgroundColor(Color::colorWithRed(0.2 * i, 0.4, 0.9 - 0.1 * i, 1));
        button->setLayerStyle({std::nullopt, 0, 16});
        bar->addSubview(button);
    }
    return bar;
}

// A finger's samples along a long wavy stroke.
Point sample(int index) {
    double t = index / 60.0;
    return {40 + std::fmod(index * 3.0, 350), 200 + 300 * t / 4 + 40 * std::sin(t * 5)};
}

struct Editor {
    TestRuntime runtime;
    Rect bounds{{0, 0}, kScreen};
    std::shared_ptr<UIWindow> window = std::make_shared<UIWindow>(bounds);
    std::shared_ptr<TVKQuadDrawView> canvas = std::make_shared<TVKQuadDrawView>(bounds);
    int samples = 0;

    Editor() {
        runtime.platform().fakeScreen().setScale(kScale);
        window->addSubview(std::make_shared<ScreenshotView>(bounds, screenshot()));
        window->addSubview(toolBar({{8, 876}, {300, 48}}, 6));
        window->addSubview(toolBar({{316, 876}, {106, 48}}, 2));
        window->addSubview(canvas);
        window->setHidden(false);
    }
    void touch(UITouchPhase phase, Point point) {
        UIApplication::sharedApplication().handleTouch(window, 1, phase, point);
    }
    void beginStroke() {
        samples = 0;
        touch(UITouchPhase::Began, sample(0));
    }
    void move() { touch(UITouchPhase::Moved, sample(++samples)); }
    void endStroke() { touch(UITouchPhase::Ended, sample(samples)); }
};

// Two moves add one curve to the stroke; the frame after them repaints that curve's area.
// Strokes are ended and begun again (untimed) every 120 samples, about two seconds of finger.
void BM_DamagedFrameAfterStrokeMove(benchmark::State& state) {
    Editor editor;
    FrameRenderer frames(editor.window, kScale);
    editor.beginStroke();
    frames.renderFrame();
    double damagedPoints = 0;
    for (auto _ : state) {
        if (editor.samples >= 120) {
            state.PauseTiming();
            editor.endStroke();
            frames.renderFrame();
            editor.beginStroke();
            state.ResumeTiming();
        }
        editor.move();
        editor.move();
        RenderedFrame frame = frames.renderFrame();
        for (const Rect& rect : frame.damage) {
            damagedPoints += rect.size.width * rect.size.height;
        }
    }
    state.counters["damaged_pt2_per_frame"] =
        benchmark::Counter(damagedPoints, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_DamagedFrameAfterStrokeMove)->Unit(benchmark::kMillisecond);

// The same window with a stroke of 60 samples in progress, drawn whole into a new bitmap.
void BM_FullRepaint(benchmark::State& state) {
    Editor editor;
    editor.beginStroke();
    while (editor.samples < 60) {
        editor.move();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(SoftwareRenderer::render(*editor.window, kScale));
    }
}
BENCHMARK(BM_FullRepaint)->Unit(benchmark::kMillisecond);

// A field of /proc/self/status, in bytes.
double statusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::stod(line.substr(field.size() + 1)) * 1024;
        }
    }
    return 0;
}

// Peak resident memory while three strokes are drawn with a frame after every move (and one
// after each stroke's end), above what the window with its screenshot already held. The peak
// is reset first (clear_refs 5), so it is this run's own.
void BM_StrokePeakMemory(benchmark::State& state) {
    for (auto _ : state) {
        Editor editor;
        double baseline = statusBytes("VmRSS");
        int baselineSurfaces = liveScreenSurfaces;
        peakScreenSurfaces = liveScreenSurfaces;
        std::ofstream("/proc/self/clear_refs") << "5";
        {
            FrameRenderer frames(editor.window, kScale);
            frames.renderFrame();
            for (int stroke = 0; stroke < 3; ++stroke) {
                editor.beginStroke();
                while (editor.samples < 90) {
                    editor.move();
                    frames.renderFrame();
                }
                editor.endStroke();
                frames.renderFrame();
            }
        }
        double extra = statusBytes("VmHWM") - baseline;
        state.counters["peak_extra_MiB"] = extra / (1024 * 1024);
        state.counters["resident_bitmaps"] = extra / kBitmapBytes;
        state.counters["peak_live_surfaces"] = peakScreenSurfaces - baselineSurfaces;
    }
}
BENCHMARK(BM_StrokePeakMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
