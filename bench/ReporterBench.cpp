// The reporter as a host pays for it, on a 390 x 844 point screen at scale 3:
// - from the trigger to the editor's first frame: the shutter, the capture of the host's
//   window, the editor with its submission started, its window, and the first full frame
//   (median and p99 of 50 reports, each cancelled before the next);
// - the annotated screenshot of a 1290 x 2796-pixel screen and its JPEG at quality 0.7, side
//   by side with `cjpeg -quality 70` of the same pixels (run as a process, which is how the
//   reference is used);
// - resident memory of the host with the reporter open (first frame drawn) against closed.
#include "Helpers/UIImage+Tarvik.h"
#include "Kit/Render/FrameRenderer.h"
#include "Platform/Testing/ReporterDriver.h"
#include "Views/TVKScreenshotViewController.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <malloc.h>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace {

using tarvik::Image;
using tarvik::testing::ReporterDriver;
using Clock = std::chrono::steady_clock;

double p99(const std::vector<double>& values) {
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    return sorted[static_cast<std::size_t>(0.99 * static_cast<double>(sorted.size() - 1) + 0.5)];
}

void configurePhone(ReporterDriver& reporter, double width, double height) {
    reporter.runtime.platform().fakeScreen().setBounds({{0, 0}, {width, height}});
    reporter.runtime.platform().fakeScreen().setScale(3);
    reporter.tarvik.configureDirectories();
}

// Cancels the report on screen and lets its window fade and its files settle.
void closeReport(ReporterDriver& reporter) {
    reporter.top<tarvik::TVKScreenshotViewController>()->didTapCancelButton();
    reporter.runtime.drain();
    reporter.runtime.advance(0.5);
}

void BM_TriggerToFirstEditorFrame(benchmark::State& state) {
    ReporterDriver reporter;
    configurePhone(reporter, 390, 844);
    reporter.open();  // warm: fonts, images and the first submission's folders
    closeReport(reporter);
    for (auto _ : state) {
        auto start = Clock::now();
        reporter.tarvik.launchIssueSubmission();
        tarvik::FrameRenderer frames(reporter.window(), 3);
        frames.renderFrame();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        closeReport(reporter);
    }
}
BENCHMARK(BM_TriggerToFirstEditorFrame)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(50)
    ->ComputeStatistics("p99", p99)
    ->ReportAggregatesOnly(true);

// What a busy app shows: a photo-like gradient under rows of text, so that the encoders meet
// detail instead of flat colour.
Image busyHostWindow(double width, double height) {
    return *Image::render(width, height, 3, Image::Opaque, [&](cairo_t* context) {
        cairo_pattern_t* sky = cairo_pattern_create_radial(width * 0.3, height * 0.2, 10,
                                                           width * 0.5, height * 0.5, height);
        cairo_pattern_add_color_stop_rgb(sky, 0, 0.98, 0.85, 0.55);
        cairo_pattern_add_color_stop_rgb(sky, 0.5, 0.35, 0.55, 0.85);
        cairo_pattern_add_color_stop_rgb(sky, 1, 0.10, 0.15, 0.30);
        cairo_set_source(context, sky);
        cairo_paint(context);
        cairo_pattern_destroy(sky);
        cairo_set_source_rgb(context, 1, 1, 1);
        cairo_set_font_size(context, 13);
        for (double y = 40; y < height; y += 18) {
            cairo_move_to(context, 12, y);
            cairo_show_text(context, "Order 1042 - 2 items - total 0.00 - tap to retry payment");
        }
    });
}

// A 1290 x 2796-pixel screen with a red loop drawn over it, as the editor hands it on.
struct AnnotatedScreen {
    std::optional<Image> screenshot;
    std::optional<Image> drawing;

    AnnotatedScreen() {
        ReporterDriver reporter;
        configurePhone(reporter, 430, 932);
        reporter.runtime.platform().hostWindow().setImage(busyHostWindow(430, 932));
        reporter.open();
        auto editor = reporter.top<tarvik::TVKScreenshotViewController>();
        reporter.tap(*editor->redColorButton());
        std::vector<tarvik::Point> loop;
        for (int step = 0; step <= 60; ++step) {
            double angle = step * 0.11;
            loop.push_back({215 + 120 * std::cos(angle), 400 + 90 * std::sin(angle)});
        }
        reporter.drag(loop);
        screenshot = editor->imageView()->image()->bitmap();
        drawing = editor->drawingView()->drawnImage();
        closeReport(reporter);
    }
};

AnnotatedScreen& annotatedScreen() {
    static AnnotatedScreen screen;
    return screen;
}

void BM_AnnotatedScreenshotAndJpeg(benchmark::State& state) {
    ReporterDriver reporter;  // the runtime the image operations read the screen's scale from
    configurePhone(reporter, 430, 932);
    AnnotatedScreen& screen = annotatedScreen();
    std::size_t bytes = 0;
    for (auto _ : state) {
        std::optional<Image> annotated =
            tarvik::tarvik_ImageByScalingAndCombiningImage(*screen.screenshot, screen.drawing);
        std::optional<tarvik::Data> jpeg = annotated->jpegRepresentation(0.7);
        bytes = jpeg->size();
        benchmark::DoNotOptimize(jpeg);
    }
    state.counters["jpeg_KiB"] = static_cast<double>(bytes) / 1024;
}
BENCHMARK(BM_AnnotatedScreenshotAndJpeg)->Unit(benchmark::kMillisecond);

// The same annotated pixels, as cjpeg reads them.
std::string annotatedPpm() {
    ReporterDriver reporter;
    configurePhone(reporter, 430, 932);
    AnnotatedScreen& screen = annotatedScreen();
    Image annotated =
        *tarvik::tarvik_ImageByScalingAndCombiningImage(*screen.screenshot, screen.drawing);
    std::string path = std::filesystem::temp_directory_path() / "tarvik-reporter-bench.ppm";
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << annotated.pixelWidth() << " " << annotated.pixelHeight() << "\n255\n";
    for (int y = 0; y < annotated.pixelHeight(); ++y) {
        for (int x = 0; x < annotated.pixelWidth(); ++x) {
            Image::Pixel pixel = annotated.pixelAt(x, y);
            file.put(static_cast<char>(pixel.red))
                .put(static_cast<char>(pixel.green))
                .put(static_cast<char>(pixel.blue));
        }
    }
    return path;
}

void BM_CjpegQuality70(benchmark::State& state) {
    std::string ppm = annotatedPpm();
    std::string jpeg = ppm + ".jpg";
    std::vector<std::string> words{"cjpeg", "-quality", "70", "-outfile", jpeg, ppm};
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        if (posix_spawnp(&child, "cjpeg", nullptr, nullptr, argv.data(), environ) != 0 ||
            waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("cjpeg did not run (package libjpeg-turbo-progs)");
            break;
        }
    }
    std::error_code missing;
    state.counters["jpeg_KiB"] =
        static_cast<double>(std::filesystem::file_size(jpeg, missing)) / 1024;
    std::filesystem::remove(ppm);
    std::filesystem::remove(jpeg);
}
BENCHMARK(BM_CjpegQuality70)->Unit(benchmark::kMillisecond);

// Resident memory in use: the allocator first hands back what it keeps free, so that a freed
// bitmap is not counted as held.
double residentBytes() {
    malloc_trim(0);
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stod(line.substr(6)) * 1024;
        }
    }
    return 0;
}

void BM_ResidentMemoryReporterOpenAgainstClosed(benchmark::State& state) {
    for (auto _ : state) {
        ReporterDriver reporter;
        configurePhone(reporter, 390, 844);
        // Once first, so that what any report loads for good (fonts, images) is counted as
        // closed: the figure is what an open reporter holds.
        reporter.open();
        closeReport(reporter);
        double closed = residentBytes();
        reporter.open();
        double open = 0;
        {
            tarvik::FrameRenderer frames(reporter.window(), 3);
            frames.renderFrame();
            open = residentBytes();
        }
        closeReport(reporter);
        double closedAgain = residentBytes();
        state.counters["closed_MiB"] = closed / (1024 * 1024);
        state.counters["open_MiB"] = open / (1024 * 1024);
        state.counters["open_extra_MiB"] = (open - closed) / (1024 * 1024);
        state.counters["after_close_extra_MiB"] = (closedAgain - closed) / (1024 * 1024);
    }
}
BENCHMARK(BM_ResidentMemoryReporterOpenAgainstClosed)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
