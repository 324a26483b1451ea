// The journal's form of page images, and their way into the file after a restart.
#include "disk/page_images.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "disk/storage_failure.h"
#include "steps/crash_points.h"

namespace zdb {
namespace {

constexpr std::size_t word_size = 4;
constexpr uint32_t page_size_min = 512;
constexpr uint32_t page_size_max = 65536;

void append_word(std::string &bytes, uint32_t word) {
  for (std::size_t byte = 0; byte < word_size; ++byte) {
    bytes.push_back(static_cast<char>((word >> (8 * byte)) & 0xFFU));
  }
}

constexpr std::size_t sum_size = 2 * word_size;

// SQLite has none for its pages: a bit that the disk has changed would go into the data.
std::string sum_of(std::string_view bytes) {
  uint64_t sum = 0xCBF29CE484222325U;
  for (const char byte : bytes) {
    sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
  }
  std::string text;
  append_word(text, static_cast<uint32_t>(sum));
  append_word(text, static_cast<uint32_t>(sum >> 32U));
  return text;
}

// Takes the words and pages off the front.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  std::string take(std::size_t count) {
    if (count > bytes_.size() - at_) {
      throw std::runtime_error("they break off");
    }
    at_ += count;
    return std::string(bytes_.substr(at_ - count, count));
  }

  uint32_t word() {
    const std::string bytes = take(word_size);
    uint32_t value = 0;
    for (std::size_t byte = 0; byte < word_size; ++byte) {
      value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[byte])) << (8 * byte);
    }
    return value;
  }

  bool at_end() const { return at_ == bytes_.size(); }

 private:
  const std::string_view bytes_;
  std::size_t at_ = 0;
};

bool is_page_size(uint32_t size) {
  return size >= page_size_min && size <= page_size_max && (size & (size - 1)) == 0;
}

// What the steps of writing share; each ends the process when it fails.
class PageFile {
 public:
  explicit PageFile(const std::string &path) : path_(path), file_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
    require(file_ >= 0, "open");
  }
  ~PageFile() { close(file_); }
  PageFile(const PageFile &) = delete;
  PageFile &operator=(const PageFile &) = delete;

  void write_at(off_t at, const std::string &bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
      crash_point();
      const ssize_t count = pwrite(file_, bytes.data() + done, bytes.size() - done, at + static_cast<off_t>(done));
      if (count < 0 && errno == EINTR) {
        continue;
      }
      require(count > 0, "write");
      done += static_cast<std::size_t>(count);
    }
  }

  void set_size(off_t size) {
    crash_point();
    require(ftruncate(file_, size) == 0, "set the size of");
  }

  void sync() {
    crash_point();
    require(fsync(file_) == 0, "sync");
    crash_point();
  }

 private:
  void require(bool done, const char *what) const {
    if (!done) {
      end_after_storage_failure(std::string("cannot ") + what + " " + path_ + ": " + std::strerror(errno));
    }
  }

  const std::string &path_;
  int file_;
};

}  // namespace

std::string encoded(const PageImages &images) {
  std::string bytes;
  bytes.reserve(3 * word_size + images.pages.size() * (word_size + images.page_size) + sum_size);
  append_word(bytes, images.page_size);
  append_word(bytes, images.page_count);
  append_word(bytes, static_cast<uint32_t>(images.pages.size()));
  for (const auto &[number, page] : images.pages) {
    append_word(bytes, number);
    bytes += page;
  }
  bytes += sum_of(bytes);
  return bytes;
}

PageImages decoded_images(const std::string &bytes) {
  const std::size_t size = bytes.size() - std::min(bytes.size(), sum_size);
  const std::string_view content = std::string_view(bytes).substr(0, size);
  if (sum_of(content) != bytes.substr(size)) {
    throw std::runtime_error("their checksum is wrong");
  }
  Reader reader(content);
  PageImages images;
  images.page_size = reader.word();
  images.page_count = reader.word();
  const uint32_t count = reader.word();
  if (!is_page_size(images.page_size)) {
    throw std::runtime_error("their page size is wrong");
  }
  for (uint32_t image = 0; image < count; ++image) {
    const uint32_t number = reader.word();
    if (number == 0 || number > images.page_count || images.pages.contains(number)) {
      throw std::runtime_error("a page's number is wrong");
    }
    images.pages[number] = reader.take(images.page_size);
  }
  if (!reader.at_end() || images.pages.empty()) {
    throw std::runtime_error("their number is wrong");
  }
  return images;
}

void write_pages(const std::string &file, const PageImages &images) {
  PageFile pages(file);
  for (const auto &[number, page] : images.pages) {
    pages.write_at(static_cast<off_t>(number - 1) * images.page_size, page);
  }
  pages.set_size(static_cast<off_t>(images.page_count) * images.page_size);
  pages.sync();
}

}  // namespace zdb
