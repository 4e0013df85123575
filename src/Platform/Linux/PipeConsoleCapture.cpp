#include "Platform/Linux/PipeConsoleCapture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tarvik {

namespace {

constexpr int kPipeCapacity = 1 << 20;

// The capture whose output must be delivered before the process exits.
std::atomic<PipeConsoleCapture*> captureToFlushAtExit{nullptr};

void flushAtExit() {
    if (PipeConsoleCapture* capture = captureToFlushAtExit.load()) {
        std::fflush(nullptr);  // what stdio still buffers goes into the pipes first
        capture->flush();
    }
}
constexpr size_t kReadSize = 64 * 1024;

constexpr auto kNoDeadline = std::chrono::steady_clock::time_point::max().time_since_epoch();

}  // namespace

PipeConsoleCapture::PipeConsoleCapture()
    : stopFd_(::eventfd(0, EFD_CLOEXEC)),
      consoleDeadline_(kNoDeadline.count()),
      consoleDeadlineFd_(::eventfd(0, EFD_CLOEXEC)) {}

PipeConsoleCapture::~PipeConsoleCapture() {
    stop();
    for (Redirection& redirection : redirections_) {
        if (redirection.readFd >= 0) {
            ::close(redirection.readFd);
        }
        if (redirection.originalFd >= 0) {
            ::close(redirection.originalFd);
        }
    }
    ::close(stopFd_);
    ::close(consoleDeadlineFd_);
}

void PipeConsoleCapture::stop() {
    PipeConsoleCapture* self = this;
    captureToFlushAtExit.compare_exchange_strong(self, nullptr);
    for (Stream stream : {Stream::StandardOutput, Stream::StandardError}) {
        Redirection& redirection = redirections_[indexOf(stream)];
        if (redirection.originalFd >= 0 && redirection.reader.joinable()) {
            if (stream == Stream::StandardOutput) {
                std::fflush(stdout);
            }
            ::dup2(redirection.originalFd, descriptorOf(stream));
        }
    }
    std::uint64_t one = 1;
    [[maybe_unused]] ssize_t ignored = ::write(stopFd_, &one, sizeof one);
    for (Redirection& redirection : redirections_) {
        if (redirection.reader.joinable()) {
            redirection.reader.join();
        }
    }
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (deliverer_.joinable()) {
        deliverer_.join();
    }
}

int PipeConsoleCapture::descriptorOf(Stream stream) {
    return stream == Stream::StandardOutput ? STDOUT_FILENO : STDERR_FILENO;
}

void PipeConsoleCapture::capture(Stream stream, ChunkHandler handler) {
    std::lock_guard lock(mutex_);
    handlers_[indexOf(stream)] = std::move(handler);
    Redirection& redirection = redirections_[indexOf(stream)];
    if (redirection.originalFd >= 0) {
        return;
    }
    int fd = descriptorOf(stream);
    if (stream == Stream::StandardOutput) {
        std::fflush(stdout);  // what the host buffered so far belongs to the real console
    }
    int fds[2];
    int original = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
    if (original < 0 || ::pipe2(fds, O_CLOEXEC) != 0) {
        if (original >= 0) {
            ::close(original);
        }
        return;
    }
    ::fcntl(fds[1], F_SETPIPE_SZ, kPipeCapacity);  // best effort: a larger cushion for bursts
    ::dup2(fds[1], fd);
    ::close(fds[1]);
    redirection.originalFd = original;
    redirection.readFd = fds[0];
    redirection.reader = std::thread([this, stream, readFd = fds[0]] { readLoop(stream, readFd); });
    if (!deliverer_.joinable()) {
        deliverer_ = std::thread([this] { deliverLoop(); });
        // A host that returns from main must not lose what it wrote last.
        captureToFlushAtExit.store(this);
        static std::once_flag registered;
        std::call_once(registered, [] { std::atexit(flushAtExit); });
    }
}

void PipeConsoleCapture::writeToOriginal(Stream stream, std::string_view bytes) {
    Redirection& redirection = redirections_[indexOf(stream)];
    if (redirection.echoGivenUp) {
        return;  // what follows a gap would mislead more than it tells
    }
    int original = redirection.originalFd;
    if (!writeToConsole(original >= 0 ? original : descriptorOf(stream), bytes)) {
        redirection.echoGivenUp = true;
    }
}

bool PipeConsoleCapture::writeToConsole(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        SteadyTime deadline{SteadyTime::duration(consoleDeadline_.load())};
        bool waitingForDeadline = deadline.time_since_epoch() == kNoDeadline;
        int timeout = -1;
        if (!waitingForDeadline) {
            auto left = std::chrono::ceil<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            timeout = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
        }
        pollfd watched[2] = {{fd, POLLOUT, 0}, {consoleDeadlineFd_, POLLIN, 0}};
        int ready = ::poll(watched, waitingForDeadline ? 2 : 1, timeout);
        if (ready < 0 && errno != EINTR) {
            return false;
        }
        if (ready <= 0 || watched[0].revents == 0) {
            if (!waitingForDeadline && ready == 0) {
                return false;  // the console's time is up
            }
            continue;  // interrupted, or a deadline was just set
        }
        // A pipe that polls writable takes PIPE_BUF bytes without blocking.
        ssize_t n = ::write(fd, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

void PipeConsoleCapture::readLoop(Stream stream, int readFd) {
    Redirection& redirection = redirections_[indexOf(stream)];
    std::string buffer(kReadSize, '\0');
    for (;;) {
        {
            // Past the bound the pipe fills, and the host's next write waits for the SDK.
            std::unique_lock lock(mutex_);
            spaceFreed_.wait(lock, [this] { return bytesInMemory_ < kMaxBytesInMemory; });
        }
        pollfd watched[2] = {{readFd, POLLIN, 0}, {stopFd_, POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        bool stopping = watched[1].revents != 0;
        if (watched[0].revents & (POLLIN | POLLHUP)) {
            ssize_t n;
            {
                std::lock_guard counting(redirection.readMutex);
                n = ::read(readFd, buffer.data(), buffer.size());
                if (n > 0) {
                    redirection.bytesRead += static_cast<std::uint64_t>(n);
                }
            }
            if (n > 0) {
                {
                    std::lock_guard lock(mutex_);
                    chunks_.push_back({stream, buffer.substr(0, static_cast<size_t>(n))});
                    bytesInMemory_ += static_cast<size_t>(n);
                }
                changed_.notify_all();
                continue;  // keep draining before looking at the stop signal again
            }
            if (n == 0 || errno != EINTR) {
                return;  // every writer has gone
            }
        }
        if (stopping) {
            return;
        }
    }
}

void PipeConsoleCapture::deliverLoop() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !chunks_.empty(); });
        if (chunks_.empty()) {
            return;
        }
        Chunk chunk = std::move(chunks_.front());
        chunks_.pop_front();
        ChunkHandler handler = handlers_[indexOf(chunk.stream)];
        lock.unlock();
        if (handler) {
            handler(chunk.stream, chunk.bytes);
        }
        redirections_[indexOf(chunk.stream)].bytesDelivered += chunk.bytes.size();
        lock.lock();
        bytesInMemory_ -= chunk.bytes.size();
        spaceFreed_.notify_all();
    }
}

void PipeConsoleCapture::flush() {
    waitForDelivery(std::nullopt);
}

void PipeConsoleCapture::flushBeforeExit(double consoleGrace, double limit) {
    SteadyTime now = std::chrono::steady_clock::now();
    auto after = [&](double seconds) {
        return now + std::chrono::duration_cast<SteadyTime::duration>(
                         std::chrono::duration<double>(seconds));
    };
    consoleDeadline_ = after(consoleGrace).time_since_epoch().count();
    std::uint64_t one = 1;
    [[maybe_unused]] ssize_t ignored = ::write(consoleDeadlineFd_, &one, sizeof one);
    waitForDelivery(after(limit));
}

void PipeConsoleCapture::waitForDelivery(std::optional<SteadyTime> deadline) {
    if (deliverer_.get_id() == std::this_thread::get_id()) {
        return;  // a handler waiting for itself would never return
    }
    // What was read so far and what still sits in the pipe: every byte written before now.
    std::array<std::uint64_t, 2> written{};
    for (size_t i = 0; i < redirections_.size(); ++i) {
        Redirection& redirection = redirections_[i];
        std::lock_guard counting(redirection.readMutex);
        int pending = 0;
        if (redirection.readFd >= 0) {
            ::ioctl(redirection.readFd, FIONREAD, &pending);
        }
        written[i] = redirection.bytesRead + static_cast<std::uint64_t>(pending);
    }
    // Polled, not waited for under the queue's mutex: a process on its way out of a crash may
    // have died holding it.
    auto delivered = [&] {
        return redirections_[0].bytesDelivered >= written[0] &&
               redirections_[1].bytesDelivered >= written[1];
    };
    while (!delivered() && (!deadline || std::chrono::steady_clock::now() < *deadline)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace tarvik
