// A bounded queue of lines, and the thread that writes them; see the header.
#include "zdbd/server_log.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

struct ServerLog::Queue {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::string> lines;  // the first one is being written
  uint64_t dropped = 0;
  bool closed = false;
};

namespace {

constexpr std::size_t lines_max = 512;
constexpr std::size_t text_max = 1000;
constexpr std::chrono::milliseconds reader_patience{200};

// Terminals take the two-byte characters U+0080 to U+009F for control characters, too.
bool is_control(std::string_view text, std::size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  const auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : ' ');
  return byte < 0x20 || byte == 0x7F || (byte == 0xC2 && next >= 0x80 && next < 0xA0);
}

std::string line_of(std::string_view text) {
  std::string line = "zdbd[" + std::to_string(getpid()) + "]: ";
  for (std::size_t at = 0; at < std::min(text.size(), text_max); ++at) {
    if (is_control(text, at)) {
      std::array<char, 8> code{};
      (void)std::snprintf(code.data(), code.size(), "\\x%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(text[at])));
      line += code.data();
    } else {
      line += text[at];
    }
  }
  line += text.size() > text_max ? "...\n" : "\n";
  return line;
}

// False when the line, or its end, cannot be written.
bool written(std::string_view line) {
  while (!line.empty()) {
    const ssize_t count = ::write(STDERR_FILENO, line.data(), line.size());
    if (count >= 0) {
      line.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd watched = {STDERR_FILENO, POLLOUT, 0};
      (void)poll(&watched, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

ServerLog::ServerLog() : queue_(std::make_shared<Queue>()) {
  std::thread([queue = queue_] {
    bool whole = true;
    std::unique_lock<std::mutex> lock(queue->mutex);
    while (true) {
      queue->changed.wait(lock, [&] { return queue->closed || !queue->lines.empty(); });
      if (queue->lines.empty()) {
        return;
      }
      const std::string &line = queue->lines.front();
      lock.unlock();
      // What a full disk has cut off must not become the beginning of the next line.
      whole = (whole || written("\n")) && written(line);
      lock.lock();
      queue->lines.pop_front();
      queue->changed.notify_all();
    }
  }).detach();
}

ServerLog::~ServerLog() {
  drain();
  const std::lock_guard<std::mutex> lock(queue_->mutex);
  queue_->closed = true;
  queue_->changed.notify_all();
}

void ServerLog::write(std::string_view text) noexcept {
  try {
    const std::lock_guard<std::mutex> lock(queue_->mutex);
    if (queue_->lines.size() >= lines_max) {
      ++queue_->dropped;
      return;
    }
    if (queue_->dropped > 0) {
      queue_->lines.push_back(line_of("lines dropped, since nobody read the log: " + std::to_string(queue_->dropped)));
      queue_->dropped = 0;
    }
    queue_->lines.push_back(line_of(text));
    queue_->changed.notify_all();
  } catch (const std::exception &) {
    return;  // without memory there is no line
  }
}

void ServerLog::drain() noexcept {
  std::unique_lock<std::mutex> lock(queue_->mutex);
  (void)queue_->changed.wait_for(lock, reader_patience, [this] { return queue_->lines.empty(); });
}

void fill_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
      _exit(1);
    }
  }
}
