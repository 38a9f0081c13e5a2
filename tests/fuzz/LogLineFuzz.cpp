// SPDX-License-Identifier: MIT
// Whatever the fields hold, the result is one line of printable text within its bound. Input: how
// large the buffer is, the level, then fields with a NUL between them.
#include <array>
#include <string>
#include <vector>

#include "Check.h"
#include "libKXLogger/LogLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) {
    return 0;
  }
  constexpr int64_t kTimeStep = 4'294'967'296;  // beyond both ends of four-digit years
  const size_t room = 4 + data[0] * size_t{16};
  const int level =
      static_cast<int8_t>(data[1]);  // NOLINT(bugprone-signed-char-misuse): below 0 too
  std::vector<std::string> fields(1);
  for (const uint8_t* byte = data + 2; byte != data + size; ++byte) {
    if (*byte == 0 && fields.size() < 5) {
      fields.emplace_back();
    } else {
      fields.back() += static_cast<char>(*byte);
    }
  }
  fields.resize(5);
  std::vector<char> buffer(room);
  const kxlogger::LogRecord record = {
      {std::chrono::sys_seconds(std::chrono::seconds((data[2] - 128) * kTimeStep)), data[2]},
      level,
      fields[0],
      fields[1],
      fields[2],
      fields[3],
      fields[4]};
  const size_t used = kxlogger::ComposeLine(buffer, kxlogger::JournalPrefix(level), record);
  Check(used >= 1 && used <= room, "within the buffer");
  const std::string line(buffer.data(), used);
  Check(line.back() == '\n' && line.find('\n') == line.size() - 1, "one line");
  for (const char character : line.substr(0, line.size() - 1)) {
    const auto byte = static_cast<unsigned char>(character);
    Check(byte >= 0x20 && byte != 0x7F, "no control byte");
  }
  return 0;
}
