// The skip list: one descent that search, insertion, deletion and the walk of a run share.
#include "kzddl/ddlskiplist.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "base/log.h"
#include "base/memory.h"
#include "kzddl/kzmisc_log.h"

using namespace kzddl;

namespace {

/// Next nodes, one for each level of a node or of the list itself.
using Links = sl_node **;

constexpr bool is_32_bit = sizeof(void *) == 4;
static_assert(offsetof(sl_list, level) == 4 && offsetof(sl_list, max_level) == 8);
static_assert(!is_32_bit || (offsetof(sl_list, compare) == 12 && offsetof(sl_list, forward) == 16 &&
                             sizeof(sl_list) == 20));
static_assert(!is_32_bit || (offsetof(sl_node, forward) == 4 && sizeof(sl_node) == 8));

/// What `node->forward` holds, known without reading it.
Links links_of(sl_node *node) { return reinterpret_cast<Links>(node + 1); }

/// Where a descent ended.
struct Landing {
  sl_node *node;  ///< the first node that does not sort before the key; null at the list's end
  bool matches;
};

enum class Stop { at_match, at_bottom };

/// Descends to the place of `key`, or with Stop::at_match to the first match met on the way.
/// path[i] receives the links, at each level left, of the last node that sorts before the key.
///
/// The node that ends the run of one level often ends the next one too; `barrier` remembers
/// it, so that no node is compared twice. Both places the next step may lead to are fetched
/// while the comparison runs: in a large list each would be a cache miss.
template <Stop stop>
Landing descend(const sl_list *list, const void *key, Links *path) {
  const sl_compare_fn compare = list->compare;
  Links links = list->forward;
  Landing barrier{nullptr, false};
  for (int level = list->level; level >= 0; --level) {
    for (sl_node *next = links[level]; next != barrier.node; next = links[level]) {
      __builtin_prefetch(links[std::max(level - 1, 0)]);
      __builtin_prefetch(links_of(next)[level]);
      const int order = compare(next->element, key);
      if (order == -1) {
        links = links_of(next);
        continue;
      }
      barrier = {next, order == 0};
      if (stop == Stop::at_match && order == 0) return barrier;
      break;
    }
    if (path != nullptr) path[level] = links;
  }
  return barrier;
}

/// Draws a level: 0, and one more with every draw below one half, whatever probability a list
/// keeps.
std::int32_t random_level(std::int32_t max_level) {
  // Threads share the process's generator without a lock. Two that seed at once start the same
  // sequence twice, two that draw at once may get one number: a level is as good as another.
  static std::atomic<bool> first{true};
  if (first.load(std::memory_order_relaxed)) {
    first.store(false, std::memory_order_relaxed);
    srand48(reinterpret_cast<long>(&random_level));
  }
  constexpr long below_half = 0x3FFFFFFE;
  std::int32_t level = 0;
  while (lrand48() <= below_half)
    ++level;
  return std::min(level, max_level);
}

/// A node with room for the links of levels 0 to `level`, which the caller sets.
sl_node *make_node(void *element, std::int32_t level) {
  const std::size_t size = sizeof(sl_node) + (level + 1) * sizeof(sl_node *);
  auto *node = static_cast<sl_node *>(std::malloc(size));
  if (node == nullptr) return nullptr;
  node->element = element;
  node->forward = links_of(node);
  return node;
}

/// Prints every level, the empty ones too; `print` writes one element and its position.
template <class Print>
void print_levels(const sl_list *list, Print print) {
  if (list == nullptr) {
    ddlmsg(log::facility, log::output, "Nothing in list.\n");
    return;
  }
  for (int level = list->max_level; level >= 0; --level) {
    ddlmsg(log::facility, log::output, "Level %d list\n", level);
    int position = 0;
    for (const sl_node *node = list->forward[level]; node != nullptr; node = node->forward[level])
      print(position++, node->element);
  }
}

}  // namespace

sl_list *sl_create(std::int32_t levels, float probability, sl_compare_fn compare) {
  if (levels < 1 || levels > KZDDL_SL_MAX_LEVELS) return nullptr;
  const std::size_t size = sizeof(sl_list) + levels * sizeof(sl_node *);
  auto *list = static_cast<sl_list *>(zeroed_block(size));
  if (list == nullptr) return nullptr;
  list->probability = probability;
  list->max_level = levels - 1;
  list->compare = compare;
  list->forward = reinterpret_cast<Links>(list + 1);
  return list;
}

void *sl_insert(sl_list *list, void *element) {
  if (list == nullptr) return nullptr;
  Links path[KZDDL_SL_MAX_LEVELS];
  const Landing place = descend<Stop::at_match>(list, element, path);
  if (place.matches) return place.node->element;

  const std::int32_t level = random_level(list->max_level);
  sl_node *node = make_node(element, level);
  if (node == nullptr) return nullptr;
  while (list->level < level)
    path[++list->level] = list->forward;
  for (int i = level; i >= 0; --i) {
    links_of(node)[i] = path[i][i];
    path[i][i] = node;
  }
  return element;
}

void *sl_search(const sl_list *list, const void *key) {
  if (list == nullptr) return nullptr;
  const Landing place = descend<Stop::at_match>(list, key, nullptr);
  return place.matches ? place.node->element : nullptr;
}

std::int32_t sl_delete(sl_list *list, const void *key) {
  if (list == nullptr) return -1;
  Links path[KZDDL_SL_MAX_LEVELS];
  const Landing place = descend<Stop::at_bottom>(list, key, path);
  if (!place.matches) return -1;

  // The path ends right before the node on each level that the node is part of.
  for (int i = 0; i <= list->level && path[i][i] == place.node; ++i)
    path[i][i] = links_of(place.node)[i];
  std::free(place.node);
  while (list->level > 0 && list->forward[list->level] == nullptr)
    --list->level;
  return 0;
}

void sl_walk(const sl_list *list, const void *key, sl_walk_fn fn, void *arg1, void *arg2) {
  if (list == nullptr) return;
  for (const sl_node *node = list->forward[0]; node != nullptr; node = node->forward[0]) {
    if (list->compare(node->element, key) == 0 && fn(key, node->element, arg1, arg2) != 0) return;
  }
}

std::int32_t sl_search_and_walk(const sl_list *list, const void *key, sl_walk_fn fn, void *arg1,
                                void *arg2) {
  if (list == nullptr) return 0;
  const Landing place = descend<Stop::at_bottom>(list, key, nullptr);
  if (!place.matches) return 0;

  std::int32_t order = 0;
  for (const sl_node *node = place.node;;) {
    if (order == 0) {
      const std::int32_t result = fn(key, node->element, arg1, arg2);
      if (result != 0) return result;
    }
    node = node->forward[0];
    if (node == nullptr) return 1;
    order = list->compare(node->element, key);
    if (order == 1) return 1;
  }
}

std::int32_t sl_destroy(sl_list *list) {
  if (list == nullptr) return -1;
  for (sl_node *node = list->forward[0]; node != nullptr;) {
    sl_node *next = node->forward[0];
    std::free(node);
    node = next;
  }
  std::free(list);
  return 0;
}

void sl_print(const sl_list *list, sl_text_fn text_of) {
  print_levels(list, [text_of](int position, const void *element) {
    ddlmsg(log::facility, log::output, "\tElement = %d Value = %s\n", position, text_of(element));
  });
}

void sl_print_int(const sl_list *list) {
  print_levels(list, [](int position, const void *element) {
    ddlmsg(log::facility, log::output, "\tElement = %d Value = %d\n", position,
           *static_cast<const std::int32_t *>(element));
  });
}
