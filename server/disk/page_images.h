// All that a transaction does to a database file: the pages as they are afterwards, and their number.
// It is what the journal keeps of a prepared branch.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace zdb {

struct PageImages {
  uint32_t page_size = 0;                 // bytes
  uint32_t page_count = 0;                // of the whole file afterwards
  std::map<uint32_t, std::string> pages;  // by their numbers, from 1; none beyond page_count
};

// The journal's form: little-endian words page size, page count, number of images, then each page's number and bytes;
// a checksum of it all behind them.
std::string encoded(const PageImages &images);
// Throws std::runtime_error when the bytes are no images.
PageImages decoded_images(const std::string &bytes);

// Puts the images into a database file that nobody has open and that has no log, and syncs it. May be repeated from any
// point at which it was broken off. A failure ends the process (storage_failure.h): the file may be half written then,
// and only the journal tells how it must look.
void write_pages(const std::string &file, const PageImages &images);

}  // namespace zdb
