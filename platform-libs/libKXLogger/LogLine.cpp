// SPDX-License-Identifier: MIT
#include "libKXLogger/LogLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>

namespace kxlogger {
namespace {

using std::chrono::day;
using std::chrono::days;
using std::chrono::month;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::year;

constexpr sys_days kFirstDay = year(0) / month(1) / day(1);
constexpr sys_seconds kFirstSecond = kFirstDay;
constexpr sys_seconds kLastSecond = sys_days(year(10000) / month(1) / day(1)) - seconds(1);
constexpr LogTime kFirstTime = {kFirstSecond, 0};
constexpr LogTime kLastTime = {kLastSecond, 999'999};

constexpr std::string_view kCutMark = "...";
constexpr std::size_t kLongestCharacter = 4;  // bytes of one character in UTF-8

bool IsControl(unsigned char byte) { return byte < 0x20 || byte == 0x7f; }

// Printable ASCII.
bool IsPlain(char character) { return character >= 0x20 && character < 0x7f; }

// Whether four characters are all that, looked at as one number: below 0x20 the difference has the
// highest bit, from 0x7f to 0xfe the sum, and of 0xff the difference again.
bool ArePlain(std::uint32_t four) {
  constexpr std::uint32_t kEach = 0x01010101;
  return (((four - 0x20 * kEach) | (four + kEach)) & (0x80 * kEach)) == 0;
}

bool IsContinuation(unsigned char byte) { return (byte & 0xc0) == 0x80; }

// Text in a buffer of fixed size that ends itself with the cut mark when it grows too long.
class Line {
 public:
  explicit Line(std::span<char> buffer) : space(buffer), limit(buffer.size() - 1) {}

  // Whole or not at all; the first piece that does not fit ends the line.
  void Piece(std::string_view piece) {
    RememberCut(piece);
    if (piece.size() > limit - size) {
      size = cutAt;
      Copy(kCutMark);
      limit = size;  // for what comes next there is no room, nor another place to cut
    } else {
      Copy(piece);
    }
  }

  // A printable character of ASCII: what a piece of it would do, without a call that copies.
  void Mark(char mark) {
    if (Room() == 0) {
      return Piece({&mark, 1});
    }
    cutAt = size;
    space[size++] = mark;
  }

  void Field(std::string_view text) {
    for (;;) {
      text.remove_prefix(Plain(text));
      if (text.empty()) {
        return;
      }
      Character(text.front());
      text.remove_prefix(1);
    }
  }

  std::size_t Finish() {
    space[size] = '\n';
    return size + 1;
  }

 private:
  // The characters that fit with room for the cut mark behind them.
  std::size_t Room() const {
    return limit - size < kCutMark.size() ? 0 : limit - size - kCutMark.size();
  }

  // Copies what `text` begins with of characters that are shown as they are and for which there is
  // room: all at once, as each by itself would have been. Returns their number.
  std::size_t Plain(std::string_view text) {
    const std::size_t fitting = std::min(Room(), text.size());
    char* const out = space.data() + size;
    std::size_t count = 0;
    for (std::uint32_t four = 0; count + sizeof four <= fitting; count += sizeof four) {
      std::memcpy(&four, text.data() + count, sizeof four);
      if (!ArePlain(four)) {
        break;
      }
      std::memcpy(out + count, &four, sizeof four);
    }
    for (; count < fitting && IsPlain(text[count]); ++count) {
      out[count] = text[count];
    }
    if (count > 0) {
      size += count;
      cutAt = size - 1;
    }
    return count;
  }

  // Rare, and so kept out of what is not: there its array would be guarded in each call.
  [[gnu::noinline]] void Character(char character) {
    const auto byte = static_cast<unsigned char>(character);
    if (IsControl(byte)) {
      constexpr std::string_view kHex = "0123456789abcdef";
      const std::array<char, 4> shown = {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xf]};
      Piece({shown.data(), shown.size()});
    } else {
      Piece({&character, 1});
    }
  }

  // A cut leaves room for its mark and never parts a character in UTF-8. Text that is no UTF-8 may
  // consist of continuation bytes alone; then no more than a character's length is given up.
  void RememberCut(std::string_view next) {
    const bool inside = !next.empty() && IsContinuation(static_cast<unsigned char>(next[0]));
    if ((!inside || size - cutAt >= kLongestCharacter) && size + kCutMark.size() <= limit) {
      cutAt = size;
    }
  }

  void Copy(std::string_view text) {
    std::copy(text.begin(), text.end(), space.begin() + static_cast<std::ptrdiff_t>(size));
    size += text.size();
  }

  std::span<char> space;
  std::size_t limit;  // bytes before the newline
  std::size_t size = 0;
  std::size_t cutAt = 0;
};

// A day's seconds, and a power of two that divides them: what is left of ten thousand years'
// seconds without it has 32 bits.
constexpr std::uint32_t kDay = 86'400;
constexpr std::uint32_t kFactor = 128;
static_assert(kDay % kFactor == 0);
static_assert((kLastSecond - kFirstSecond).count() / kFactor <=
              std::numeric_limits<std::uint32_t>::max());

using TwoDigits = std::array<char, 2>;

constexpr std::array<TwoDigits, 100> EachTwoDigits() {
  std::array<TwoDigits, 100> table{};
  for (unsigned number = 0; number < table.size(); ++number) {
    table[number] = {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
  }
  return table;
}

constexpr std::array<TwoDigits, 100> kTwoDigits = EachTwoDigits();

constexpr std::string_view kZeroTime = "0000-00-00T00:00:00.000000Z ";
constexpr std::size_t kLongestLevel = std::numeric_limits<int>::digits10 + 2;  // a sign as well

void AppendTimeAndLevel(Line& line, const LogTime& time, int level) {
  const LogTime& shown = std::ranges::clamp(time, kFirstTime, kLastTime, {}, &LogTime::second);
  const auto passed = static_cast<std::uint64_t>((shown.second - kFirstSecond).count());
  const std::uint32_t day = static_cast<std::uint32_t>(passed / kFactor) / (kDay / kFactor);
  const auto second = static_cast<std::uint32_t>(passed - std::uint64_t{day} * kDay);
  const std::chrono::year_month_day date(kFirstDay + days(day));
  std::array<char, kZeroTime.size() + kLongestLevel> text;
  char* const levelText = std::copy(kZeroTime.begin(), kZeroTime.end(), text.data());
  const auto put = [&text](unsigned number, std::size_t place) {
    std::copy(kTwoDigits[number].begin(), kTwoDigits[number].end(), text.data() + place);
  };
  const auto inYears = static_cast<unsigned>(static_cast<int>(date.year()));
  put(inYears / 100, 0);
  put(inYears % 100, 2);
  put(static_cast<unsigned>(date.month()), 5);
  put(static_cast<unsigned>(date.day()), 8);
  put(second / 3600, 11);
  put(second / 60 % 60, 14);
  put(second % 60, 17);
  put(shown.microsecond / 10'000, 20);
  put(shown.microsecond / 100 % 100, 22);
  put(shown.microsecond % 100, 24);
  const char* const end = std::to_chars(levelText, text.data() + text.size(), level).ptr;
  line.Piece({text.data(), static_cast<std::size_t>(end - text.data())});
}

}  // namespace

std::size_t ComposeLine(std::span<char> buffer, std::string_view prefix, const LogRecord& record) {
  std::string_view message = record.message;
  while (!message.empty() && message.back() == '\n') {
    message.remove_suffix(1);
  }
  Line line(buffer);
  line.Piece(prefix);
  AppendTimeAndLevel(line, record.time, record.level);
  line.Mark(' ');
  line.Field(record.module);
  line.Mark(' ');
  line.Field(record.file);
  line.Mark(':');
  line.Field(record.line);
  line.Mark(' ');
  line.Field(record.tag);
  line.Mark(' ');
  line.Field(message);
  return line.Finish();
}

std::string_view JournalPrefix(int level) {
  constexpr std::array<std::string_view, 4> kPrefixes = {"<2>", "<3>", "<4>", "<6>"};
  if (level > 3) {
    return "<7>";
  }
  return kPrefixes[static_cast<std::size_t>(std::max(level, 0))];
}

bool NamesStream(std::string_view journalStream, std::uint64_t device, std::uint64_t inode) {
  const char* const end = journalStream.data() + journalStream.size();
  std::uint64_t namedDevice = 0;
  const auto first = std::from_chars(journalStream.data(), end, namedDevice);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != ':') {
    return false;
  }
  std::uint64_t namedInode = 0;
  const auto second = std::from_chars(first.ptr + 1, end, namedInode);
  return second.ec == std::errc() && second.ptr == end && namedDevice == device &&
         namedInode == inode;
}

}  // namespace kxlogger
