#include "Platform/Linux/PipeConsoleCapture.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
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

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
}

}  // namespace

PipeConsoleCapture::PipeConsoleCapture() : stopFd_(::eventfd(0, EFD_CLOEXEC)) {}

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
    int fd;
    {
        std::lock_guard lock(mutex_);
        int original = redirections_[indexOf(stream)].originalFd;
        fd = original >= 0 ? original : descriptorOf(stream);
    }
    writeAll(fd, bytes);
}

void PipeConsoleCapture::readLoop(Stream stream, int readFd) {
    std::string buffer(kReadSize, '\0');
    for (;;) {
        pollfd watched[2] = {{readFd, POLLIN, 0}, {stopFd_, POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        bool stopping = watched[1].revents != 0;
        if (watched[0].revents & (POLLIN | POLLHUP)) {
            ssize_t n = ::read(readFd, buffer.data(), buffer.size());
            if (n > 0) {
                {
                    std::lock_guard lock(mutex_);
                    chunks_.push_back({stream, buffer.substr(0, static_cast<size_t>(n))});
                    ++received_;
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
        lock.lock();
        ++delivered_;
        changed_.notify_all();
    }
}

bool PipeConsoleCapture::pipesAreEmpty() const {
    for (const Redirection& redirection : redirections_) {
        int pending = 0;
        if (redirection.readFd >= 0 && ::ioctl(redirection.readFd, FIONREAD, &pending) == 0 &&
            pending > 0) {
            return false;
        }
    }
    return true;
}

void PipeConsoleCapture::flush() {
    if (deliverer_.get_id() == std::this_thread::get_id()) {
        return;  // a handler waiting for itself would never return
    }
    // Bytes may still sit in a pipe; wait (briefly, in steps) for the readers to take them.
    for (int step = 0; step < 2000 && !pipesAreEmpty(); ++step) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return delivered_ == received_; });
}

}  // namespace tarvik
