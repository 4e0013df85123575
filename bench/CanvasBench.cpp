// The end of a stroke on a full-screen canvas (430 x 932 points at scale 3, 1290 x 2796 pixels):
// the canvas's bake, beside a naive bake that makes a new bitmap, copies the old one into it and
// strokes the path, as an immutable image would have to.
#include "Kit/UIApplication.h"
#include "Kit/UIBezierPath.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKQuadDrawView.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

using namespace tarvik;
using tarvik::testing::TestRuntime;

constexpr Size kScreen{430, 932};
constexpr double kScale = 3;

// A finger's samples over a hand-sized stroke, as a phone reports them.
std::vector<Point> strokeSamples(int stroke) {
    std::vector<Point> samples;
    for (int i = 0; i < 40; ++i) {
        double t = i / 39.0;
        samples.push_back({40 + 300 * t, 150 + 20 * stroke + 60 * std::sin(t * 6)});
    }
    return samples;
}

void BM_CanvasStrokeEnd(benchmark::State& state) {
    TestRuntime runtime;
    runtime.platform().fakeScreen().setScale(kScale);
    Rect bounds{{0, 0}, kScreen};
    auto window = std::make_shared<UIWindow>(bounds);
    auto canvas = std::make_shared<TVKQuadDrawView>(bounds);
    window->addSubview(canvas);
    window->setHidden(false);
    UIApplication& application = UIApplication::sharedApplication();
    int stroke = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<Point> samples = strokeSamples(stroke++ % 30);
        application.handleTouch(window, 1, UITouchPhase::Began, samples.front());
        for (Point sample : samples) {
            application.handleTouch(window, 1, UITouchPhase::Moved, sample);
        }
        state.ResumeTiming();
        application.handleTouch(window, 1, UITouchPhase::Ended, samples.back());
    }
}
BENCHMARK(BM_CanvasStrokeEnd)->Unit(benchmark::kMillisecond);

void BM_NaiveBake(benchmark::State& state) {
    TestRuntime runtime;
    std::optional<Image> bitmap =
        Image::blank(kScreen.width, kScreen.height, kScale, Image::Transparent);
    Color red = Color::colorWithRed(230 / 255.0, 58 / 255.0, 46 / 255.0, 1);
    int stroke = 0;
    for (auto _ : state) {
        state.PauseTiming();
        UIBezierPath path;
        path.setLineWidth(7);
        std::vector<Point> samples = strokeSamples(stroke++ % 30);
        path.moveToPoint(samples.front());
        for (size_t i = 1; i + 1 < samples.size(); i += 2) {
            Point next = samples[i + 1];
            path.addQuadCurveToPoint({(samples[i].x + next.x) / 2, (samples[i].y + next.y) / 2},
                                     samples[i]);
        }
        state.ResumeTiming();
        bitmap = Image::render(kScreen.width, kScreen.height, kScale, Image::Transparent,
                               [&](cairo_t* context) {
                                   cairo_set_source_surface(context, bitmap->surface(), 0, 0);
                                   cairo_paint(context);
                                   path.stroke(context, red);
                               });
    }
}
BENCHMARK(BM_NaiveBake)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
