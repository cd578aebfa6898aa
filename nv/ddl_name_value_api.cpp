// Name-value pairs and lists.
//
// Inside a value, typed strings lie side by side with a "," in the place of each terminator
// but the last. Whatever holds whole values is therefore copied in one piece.
#include "kzddl/ddl_name_value_api.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/ascii.h"
#include "base/cancellation.h"
#include "base/log.h"
#include "base/memory.h"
#include "kzddl/ddlts.h"
#include "kzddl/kzmisc_log.h"
#include "nv/ddlts.h"

using namespace kzddl;

namespace {

// The guard stands right before the address the caller sees. What lies before the guard on
// 64-bit keeps that address aligned for pointers.
constexpr char guard[4] = {'!', '^', '#', '@'};
constexpr std::size_t prefix_size = sizeof(void *);

/// Sizes add up in 64 bits: they wrap in neither word size.
void *guarded_block(std::uint64_t n) {
  if (n > SIZE_MAX - prefix_size) return nullptr;
  auto *block = static_cast<char *>(std::malloc(prefix_size + static_cast<std::size_t>(n)));
  if (block == nullptr) return nullptr;
  block += prefix_size;
  std::memcpy(block - sizeof guard, guard, sizeof guard);
  return block;
}

/// An array of strings in one block: `n` pointers to be set, a null, and room for the strings.
struct StringArray {
  StringArray(std::uint64_t n, std::uint64_t string_bytes) {
    if (n > INT32_MAX) return;
    pointers = static_cast<char **>(guarded_block((n + 1) * sizeof(char *) + string_bytes));
    if (pointers == nullptr) return;
    pointers[n] = nullptr;
    strings = reinterpret_cast<char *>(pointers + n + 1);
  }

  char **pointers = nullptr;  ///< null when memory is short
  char *strings = nullptr;
};

/// Copies a string's bytes without a terminator; returns the end of the copy.
char *put(char *to, std::string_view s) {
  return static_cast<char *>(mempcpy(to, s.data(), s.size()));
}

/// Writes a string of at most `length` bytes into a block of its own.
class StringWriter {
 public:
  explicit StringWriter(std::uint64_t length)
      : start_(static_cast<char *>(guarded_block(length + 1))), end_(start_) {}

  /// False when memory is short; then nothing may be written.
  explicit operator bool() const { return start_ != nullptr; }

  void write(char c) { *end_++ = c; }
  void write(std::string_view s) { end_ = put(end_, s); }

  /// Ends the string and hands it over; returns 0.
  std::int32_t deliver(char **out) {
    *end_ = '\0';
    *out = start_;
    return 0;
  }

 private:
  char *start_;
  char *end_;
};

/// Number of whitespace characters at the start of `s`.
std::size_t skip_space(const char *s) {
  const char *at = s;
  while (is_space(*at))
    ++at;
  return at - s;
}

/// Number of whitespace characters right before `end`; `start` itself is never looked at.
std::size_t remove_space(const char *end, const char *start) {
  const char *at = end;
  while (at - start > 1 && is_space(at[-1]))
    --at;
  return end - at;
}

/// A sequence of values, separators included.
struct Sequence {
  explicit Sequence(const char *values) {
    const char *last = values;
    for (const char *comma = find_in_value(last, ','); comma != nullptr;
         comma = find_in_value(last, ',')) {
      last = comma + 1;
      ++count;
    }
    length = last + value_length(last) - values;
  }

  std::size_t count = 1;
  std::size_t length;
};

/// Length of a pair's value: its first byte says whether all of it is typed strings or text.
std::size_t extent_of(const char *value) {
  return is_typed(value) ? Sequence(value).length : std::strlen(value);
}

/// The bytes of a pair without its terminator; none where it has no "=".
std::string_view whole_pair(const char *pair) {
  const char *equals = std::strchr(pair, '=');
  if (equals == nullptr) return {};
  const char *value = equals + 1;
  return {pair, value - pair + extent_of(value)};
}

/// The name of a pair to be made.
std::string_view name_of(const char *s) { return s + skip_space(s); }

/// A pair that has a name: its first character that is no blank, and its "=".
struct NamedPair {
  explicit NamedPair(const char *pair)
      : name(pair + skip_space(pair)), equals(std::strchr(name, '=')) {}

  explicit operator bool() const { return equals != nullptr && equals != name; }
  const char *value() const { return equals + 1; }

  const char *name;
  const char *equals;
};

/// Calls f(string) for each of the strings up to a null pointer.
template <class F>
void for_each_string(std::va_list strings, F f) {
  std::va_list rest;
  va_copy(rest, strings);
  while (const char *s = va_arg(rest, const char *))
    f(s);
  va_end(rest);
}

/// Room for each string with a separator or its terminator.
std::uint64_t room_for(std::va_list strings) {
  std::uint64_t room = 0;
  for_each_string(strings, [&room](const char *s) { room += std::uint64_t{value_length(s)} + 1; });
  return room;
}

/// A list of copies of the pairs of `old`, which may be null, and of those added. Returns their
/// number, or -1 when there is nothing to copy from or a pair has no "=".
std::int32_t build_list(char ***list, char *const *old, std::va_list added) {
  const auto for_each_pair = [old, added](auto f) {
    for (char *const *pair = old; pair != nullptr && *pair != nullptr; ++pair)
      f(*pair);
    for_each_string(added, f);
  };
  std::size_t count = 0;
  for_each_pair([&count](const char *) { ++count; });
  if (old == nullptr && count == 0) return -1;

  // Each pair is measured once: finding its end takes longer than copying it.
  std::string_view few[16];
  Owned<std::string_view[]> many;
  std::string_view *pairs = few;
  if (count > std::size(few)) {
    many = zeroed_array<std::string_view>(count);
    if (many == nullptr) return -1;
    pairs = many.get();
  }
  std::string_view *next = pairs;
  for_each_pair([&next](const char *pair) { *next++ = whole_pair(pair); });
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (pairs[i].empty()) return -1;
    bytes += pairs[i].size() + 1;
  }

  const StringArray copies(count, bytes);
  if (copies.pointers == nullptr) return -1;
  char *to = copies.strings;
  for (std::size_t i = 0; i < count; ++i) {
    copies.pointers[i] = to;
    to = put(to, pairs[i]);
    *to++ = '\0';
  }
  *list = copies.pointers;
  return static_cast<std::int32_t>(count);
}

std::int32_t set_values(char **pair, std::string_view name, std::va_list values) {
  if (name.empty()) return -1;
  StringWriter built(name.size() + 1 + room_for(values));
  if (!built) return -1;
  built.write(name);
  built.write('=');
  std::size_t previous = 0;
  for_each_string(values, [&](const char *value) {
    if (previous != 0) built.write(',');
    previous = value_length(value);
    built.write({value, previous});
  });
  return built.deliver(pair);
}

std::int32_t append_values(char **pair, const char *old, std::va_list values) {
  if (!NamedPair(old)) return -1;
  const std::string_view whole = whole_pair(old);
  StringWriter built(whole.size() + room_for(values));
  if (!built) return -1;
  built.write(whole);
  for_each_string(values, [&](const char *value) {
    built.write(',');
    built.write({value, value_length(value)});
  });
  return built.deliver(pair);
}

std::int32_t split_typed(const char *value, char ***values) {
  const Sequence sequence(value);
  const StringArray split(sequence.count, std::uint64_t{sequence.length} + 1);
  if (split.pointers == nullptr) return -1;

  *put(split.strings, {value, sequence.length}) = '\0';
  char *element = split.strings;
  for (std::size_t i = 0; i < sequence.count; ++i) {
    split.pointers[i] = element;
    if (char *comma = find_in_value(element, ',')) {
      *comma = '\0';
      element = comma + 1;
    }
  }
  *values = split.pointers;
  return static_cast<std::int32_t>(sequence.count);
}

/// An element of plain text may start with the marker, a device's own text for one. It is then
/// taken for a typed string, whose length byte promises up to so many bytes: zeros follow.
std::size_t zeros_behind(const char *plain) {
  const bool marked = std::strchr(plain, KZDDL_TS_MARKER) != nullptr;
  return marked ? KZDDL_TS_HEADER_SIZE + KZDDL_TS_MAX_PAYLOAD : 0;
}

std::int32_t split_plain(const char *value, char ***values) {
  const char *end = value + std::strlen(value);
  const std::uint64_t count = std::uint64_t(std::count(value, end, ',')) + 1;
  const std::size_t zeros = zeros_behind(value);
  const StringArray split(count, std::uint64_t(end - value) + 1 + zeros);
  if (split.pointers == nullptr) return -1;

  char **pointer = split.pointers;
  char *to = split.strings;
  for (const char *at = value;;) {
    const char *element_end = strchrnul(at, ',');
    const char *element = at + skip_space(at);
    const std::size_t length = element_end - element - remove_space(element_end, element);
    *pointer++ = to;
    to = put(to, {element, length});
    *to++ = '\0';
    if (*element_end == '\0') break;
    at = element_end + 1;
  }
  std::memset(to, 0, zeros);
  *values = split.pointers;
  return static_cast<std::int32_t>(count);
}

}  // namespace

void *nv_alloc(std::uint32_t n) { return guarded_block(n); }

void nv_free(void *block) {
  if (block == nullptr) return;
  char *mark = static_cast<char *>(block) - sizeof guard;
  if (std::memcmp(mark, guard, sizeof guard) != 0) return;
  explicit_bzero(mark, sizeof guard);  // a plain store before free would be dropped
  std::free(static_cast<char *>(block) - prefix_size);
}

std::int32_t nv_create_list(char ***list, ...) {
  std::va_list pairs;
  va_start(pairs, list);
  const std::int32_t count = build_list(list, nullptr, pairs);
  va_end(pairs);
  return count;
}

std::int32_t nv_append_list(char ***list, char *const *old, ...) {
  std::va_list pairs;
  va_start(pairs, old);
  const std::int32_t count = build_list(list, old, pairs);
  va_end(pairs);
  return count;
}

std::int32_t nv_set_value(char **pair, const char *name_text, const char *value) {
  const std::string_view name = name_of(name_text);
  if (name.empty()) return -1;
  const std::size_t extent = extent_of(value);
  StringWriter built(std::uint64_t{name.size()} + 1 + extent);
  if (!built) return -1;
  built.write(name);
  built.write('=');
  built.write({value, extent});
  return built.deliver(pair);
}

std::int32_t nv_set_mult_value(char **pair, const char *name, ...) {
  std::va_list values;
  va_start(values, name);
  const std::int32_t result = set_values(pair, name_of(name), values);
  va_end(values);
  return result;
}

std::int32_t nv_append_value(char **pair, const char *old, ...) {
  std::va_list values;
  va_start(values, old);
  const std::int32_t result = append_values(pair, old, values);
  va_end(values);
  return result;
}

std::int32_t nv_get_name(const char *pair, char **name) {
  const NamedPair source(pair);
  if (!source) return -1;
  const std::size_t length = source.equals - source.name - remove_space(source.equals, source.name);
  StringWriter copy(length);
  if (!copy) return -1;
  copy.write({source.name, length});
  return copy.deliver(name);
}

std::int32_t nv_get_value(const char *pair, char ***values) {
  const NamedPair source(pair);
  if (!source) return -1;
  return is_typed(source.value()) ? split_typed(source.value(), values)
                                  : split_plain(source.value(), values);
}

void nv_print(char *const *list) {
  const CancellationPutOff uncancelled;  // the log is a file
  ddlmsg(log::facility, log::output, "Printing Name-Value Pair\n");
  for (int i = 0; list[i] != nullptr; ++i) {
    char *name = nullptr;
    if (nv_get_name(list[i], &name) == 0) {
      ddlmsg(log::facility, log::output, "%s \t: ", name);
      nv_free(name);
    } else {
      ddlmsg(log::facility, log::output, "Invalid nv pair for i = %d", i);
    }
    char **values = nullptr;
    const std::int32_t count = nv_get_value(list[i], &values);
    for (std::int32_t v = 0; v < count; ++v) {
      char *text = nullptr;
      if (ts_tostring(values[v], &text) == 0) {
        ddlmsg(log::facility, log::output, " %s", text);
        std::free(text);
      } else {
        ts_print(values[v]);
      }
      if (v + 1 < count) ddlmsg(log::facility, log::output, ",");
    }
    nv_free(values);
    ddlmsg(log::facility, log::output, "\n");
  }
}
