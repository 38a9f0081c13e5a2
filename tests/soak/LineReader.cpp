// SPDX-License-Identifier: MIT
#include "soak/LineReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

LineReader::LineReader(int stream) : descriptor(stream) {
  (void)fcntl(descriptor, F_SETFL, O_NONBLOCK);
}

LineReader::~LineReader() { (void)close(descriptor); }

std::vector<std::string> LineReader::Lines() {
  std::array<char, 65536> buffer;
  for (ssize_t count; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
    rest.append(buffer.data(), static_cast<size_t>(count));
  }
  std::vector<std::string> lines;
  size_t from = 0;
  for (size_t end; (end = rest.find('\n', from)) != std::string::npos; from = end + 1) {
    lines.push_back(rest.substr(from, end - from));
  }
  rest.erase(0, from);
  return lines;
}
