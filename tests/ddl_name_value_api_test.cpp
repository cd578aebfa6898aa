// Name-value pairs and lists: their bytes, their blocks, and what is refused.
#include "kzddl/ddl_name_value_api.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>

#include "kzddl/ddlts.h"
#include "support/guarded_page.h"
#include "support/log_capture.h"
#include "support/property_test.h"

namespace {

using namespace kzddl_test;
using namespace std::string_literals;

constexpr char *end = nullptr;
char *const untouched = const_cast<char *>("untouched");

const std::string first = typed("a,b=\0c"s);
const std::string second = typed("\x1B,\0,"s, 1);

bool is_guarded(const void *block) {
  return std::memcmp(static_cast<const char *>(block) - 4, "!^#@", 4) == 0;
}

/// The bytes of a pair or value: `size` and the terminator that must follow; then released.
std::string take(char *block, std::size_t size) {
  EXPECT_TRUE(is_guarded(block));
  std::string bytes(block, size);
  EXPECT_EQ(block[size], '\0');
  nv_free(block);
  return bytes;
}

/// The strings of an array that holds `n`, packed behind it in its block; then released.
Strings take(char **array, int n, const std::function<std::size_t(const char *)> &length) {
  Strings strings;
  EXPECT_TRUE(is_guarded(array));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(array) % alignof(char *), 0u);
  EXPECT_EQ(array[n], nullptr);
  const char *expected = reinterpret_cast<char *>(array + n + 1);
  for (int i = 0; i < n; ++i) {
    EXPECT_EQ(array[i], expected) << i;
    strings.emplace_back(array[i], length(array[i]));
    expected = array[i] + strings.back().size() + 1;
    EXPECT_EQ(expected[-1], '\0');
  }
  nv_free(array);
  return strings;
}

Strings values_of(const std::string &pair) {
  char **values = nullptr;
  const int n = nv_get_value(pair.c_str(), &values);
  return n < 0 ? Strings{"none"} : take(values, n, ts_len);
}

std::string name_of(const std::string &pair) {
  char *name = untouched;
  if (nv_get_name(pair.c_str(), &name) != 0) return name == untouched ? "none" : "touched";
  return take(name, std::strlen(name));
}

TEST(NameValue, BlocksAreReleasedOnlyByTheirGuard) {
  auto *block = static_cast<char *>(nv_alloc(16));
  ASSERT_TRUE(is_guarded(block));
  std::memset(block, 0xFF, 16);
  nv_free(block);
  nv_free(nv_alloc(0));
  nv_free(nullptr);
  char foreign[] = "!^#$mine";
  nv_free(foreign + 4);
  EXPECT_STREQ(foreign, "!^#$mine");
  if (sizeof(void *) == 4) {
    EXPECT_EQ(nv_alloc(~0u), nullptr);
  }
}

TEST(NameValue, ListsCopyTheirPairs) {
  const std::string pair = "b=" + first + "," + second;
  const auto pair_length = [&pair](const char *p) {
    return p[0] == 'b' ? pair.size() : std::strlen(p);
  };
  char **list = nullptr;
  char **longer = nullptr;
  ASSERT_EQ(nv_create_list(&list, "a=1", pair.c_str(), " =", end), 3);
  ASSERT_EQ(nv_append_list(&longer, list, "c= x , y", end), 4);
  EXPECT_EQ(take(list, 3, pair_length), (Strings{"a=1", pair, " ="}));
  EXPECT_EQ(take(longer, 4, pair_length), (Strings{"a=1", pair, " =", "c= x , y"}));

  char *const none[] = {nullptr};
  ASSERT_EQ(nv_append_list(&list, none, end), 0);
  EXPECT_EQ(take(list, 0, pair_length), Strings{});
  ASSERT_EQ(nv_append_list(&list, none, "a=1", end), 1);
  EXPECT_EQ(take(list, 1, pair_length), Strings{"a=1"});
}

TEST(NameValue, PairsHoldWholeValues) {
  const std::string both = first + "," + second, old = " n=" + first;
  const char *one = first.c_str(), *two = second.c_str();
  const struct {
    std::string expected;
    std::function<int(char **)> build;
  } cases[] = {
      {"speed = fast , slow ",
       [](auto p) { return nv_set_value(p, " \t speed ", " fast , slow "); }},
      {"n=" + first, [&](auto p) { return nv_set_value(p, "n", one); }},
      {"n=" + both, [&](auto p) { return nv_set_value(p, "n", both.c_str()); }},
      {"DISK =" + both, [&](auto p) { return nv_set_mult_value(p, " DISK ", one, two, end); }},
      {"n=", [&](auto p) { return nv_set_mult_value(p, "n", end); }},
      // No "," follows an empty value.
      {"n=" + both, [&](auto p) { return nv_set_mult_value(p, "n", "", one, "", "", two, end); }},
      {"n=" + first + ",", [&](auto p) { return nv_set_mult_value(p, "n", one, "", end); }},
      {old + "," + second + "," + first,
       [&](auto p) { return nv_append_value(p, old.c_str(), two, one, end); }},
      {"n=x", [&](auto p) { return nv_append_value(p, "n=x", end); }},
  };
  for (const auto &[expected, build] : cases) {
    char *pair = nullptr;
    ASSERT_EQ(build(&pair), 0);
    EXPECT_EQ(take(pair, expected.size()), expected);
  }
}

TEST(NameValue, NamesLoseTheBlanksAroundThem) {
  EXPECT_EQ(name_of("  speed =  fast , slow ,,"), "speed");
  EXPECT_EQ(name_of("a b \t\r\n\v\f=c=d"), "a b");
  EXPECT_EQ(name_of("x=" + first), "x");
  EXPECT_EQ(name_of("\xA0 ="), "\xA0");  // no blank in the C locale
  for (const char *malformed : {"", "  ", "speed", "=x", " \t=x"}) {
    EXPECT_EQ(name_of(malformed), "none");
    EXPECT_EQ(values_of(malformed), Strings{"none"});
  }
}

TEST(NameValue, ValuesAreSplitAtCommas) {
  EXPECT_EQ(values_of("  speed =  fast , slow ,,"), (Strings{"fast", "slow", "", ""}));
  EXPECT_EQ(values_of("n="), Strings{""});
  EXPECT_EQ(values_of("n= \t"), Strings{""});
  EXPECT_EQ(values_of("n=a b,=,\xA0 , x"), (Strings{"a b", "=", "\xA0", "x"}));
  EXPECT_EQ(values_of("n=" + first), Strings{first});
  EXPECT_EQ(values_of("n=" + first + "," + second + ","), (Strings{first, second, ""}));
  EXPECT_EQ(values_of("n=" + first + ",x,y"), (Strings{first, "x", "y"}));
}

TEST(NameValue, AnyPayloadSurvivesTheRoundTrip) {
  std::mt19937 random(4);
  const char alphabet[] = {',', '=', '\0', '\x1B', ' ', '\xFF', 'a', '\3'};
  for (int i = 0; i < 300; ++i) {
    Strings values;
    for (int v = 0; v < 3; ++v) {
      std::string payload(random() % (i % 10 == 0 ? 256 : 6), '\0');
      for (char &c : payload)
        c = alphabet[random() % sizeof alphabet];
      values.push_back(typed(payload, static_cast<char>(random())));
    }
    char *pair = nullptr;
    ASSERT_EQ(nv_set_mult_value(&pair, "n", values[0].c_str(), values[1].c_str(), end), 0);
    char *longer = nullptr;
    ASSERT_EQ(nv_append_value(&longer, pair, values[2].c_str(), end), 0);
    char **list = nullptr;
    ASSERT_EQ(nv_create_list(&list, "a=b", longer, pair, end), 3);
    nv_free(pair);
    nv_free(longer);
    char **split = nullptr;
    ASSERT_EQ(nv_get_value(list[1], &split), 3);
    nv_free(list);
    EXPECT_EQ(take(split, 3, ts_len), values);
  }
}

TEST(NameValue, FailuresDeliverNothing) {
  char **list = &const_cast<char *&>(untouched);
  char *pair = untouched;
  char *const old[] = {const_cast<char *>("no pair"), nullptr};
  EXPECT_EQ(nv_create_list(&list, end), -1);
  EXPECT_EQ(nv_create_list(&list, "a=1", "", "b=2", end), -1);
  EXPECT_EQ(nv_append_list(&list, old, "a=1", end), -1);
  EXPECT_EQ(nv_set_value(&pair, " \t", "x"), -1);
  EXPECT_EQ(nv_set_mult_value(&pair, "", "x", end), -1);
  for (const char *malformed : {"x", " =x", "=x", ""})
    EXPECT_EQ(nv_append_value(&pair, malformed, "y", end), -1);
  EXPECT_EQ(list, &untouched);
  EXPECT_EQ(pair, untouched);
}

TEST(NameValue, TextThatLooksTypedInsideIsReadNoFurtherThanItGoes) {
  const auto guarded = [](const std::string &text) {
    return std::vector<std::uint8_t>(text.c_str(), text.c_str() + text.size() + 1);
  };
  for (const std::string text : {"a, \x1B\xFF\xFF", "a,\x1B\xFF\xFF"}) {
    const GuardedPage source(guarded(text)), given(guarded("vendor=" + text));
    char *pair = nullptr;
    ASSERT_EQ(nv_set_value(&pair, "vendor", reinterpret_cast<const char *>(source.data())), 0);
    EXPECT_EQ(pair, "vendor=" + text);
    char **list = nullptr;
    ASSERT_EQ(nv_create_list(&list, given.data(), end), 1);
    EXPECT_EQ(list[0], "vendor=" + text);
    char **values = nullptr;
    ASSERT_EQ(nv_get_value(pair, &values), 2);
    EXPECT_STREQ(values[1], "\x1B\xFF\xFF");
    std::vector<char> copy(ts_len(values[1]) + 1);
    ts_copy(copy.data(), values[1]);  // a sanitizer watches
    EXPECT_EQ(copy.back(), '\0');
    nv_free(values);
    nv_free(list);
    nv_free(pair);
  }
}

TEST(NameValue, ListsPrintALineForEachPair) {
  const std::string pair = "disk=" + typed("sda") + "," + typed("\xC3", 1);
  char **list = nullptr;
  ASSERT_EQ(nv_create_list(&list, " speed = fast , slow,", " =x", pair.c_str(), end), 3);
  LogCapture log;
  nv_print(list);
  EXPECT_EQ(log.text(),
            "Printing Name-Value Pair\n"
            "speed \t:  fast, slow, \n"
            "Invalid nv pair for i = 1\n"
            "disk \t:  sda, C3\n");
  nv_free(list);
}

}  // namespace
