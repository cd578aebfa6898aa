// The property database against SQLite in memory: 10,000 disks with 8 attributes each, values
// shared by 10, all linked; and the same look-ups from two threads.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sqlite3.h>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <thread>

#include "bench/compare.h"
#include "kzddl/ddlproperty.h"
#include "kzddl/ddlproperty_asso.h"
#include "kzddl/ddlproperty_dynamic.h"

namespace {

constexpr std::size_t disk_count = 10000;
constexpr std::size_t attribute_count = 8;
constexpr std::size_t shared_by = 10;

/// Names made beforehand: both sides get the same C strings.
struct Names {
  Names() {
    for (std::size_t a = 0; a < attribute_count; ++a) {
      for (std::size_t v = 0; v < disk_count / shared_by; ++v) {
        values[a].push_back(attributes[a] + "-" + std::to_string(v));
      }
    }
    for (std::size_t d = 0; d < disk_count; ++d) {
      disks.push_back("/dev/rdsk/disk" + std::to_string(d));
    }
  }

  const char *value(std::size_t disk, std::size_t attribute) const {
    return values[attribute][disk / shared_by].c_str();
  }

  std::vector<std::string> disks;
  std::vector<std::string> attributes{"VENDOR",  "PRODUCT",    "REVISION",   "SERIAL",
                                      "CABINET", "CONTROLLER", "JOX_DEVICE", "ARRAY_TYPE"};
  std::vector<std::string> values[attribute_count];
};

const Names &names() {
  static const Names made;
  return made;
}

/// Lists for thousands of values, each associated with some.
ddl_prop_table *large_lists() {
  static ddl_prop_table table = {[](const char *) { return std::int32_t{0}; },
                                 [](std::int32_t) { return std::int32_t{20}; },
                                 [](std::int32_t) { return std::int32_t{8}; }};
  return &table;
}

void store(const char *property, const char *value) {
  const char *const one[] = {value, nullptr};
  set_property(property, one);
}

void build_database() {
  for (std::size_t d = 0; d < disk_count; ++d) {
    const char *disk = names().disks[d].c_str();
    store("DISK", disk);
    for (std::size_t a = 0; a < attribute_count; ++a) {
      const char *attribute = names().attributes[a].c_str();
      store(attribute, names().value(d, a));
      set_asso("DISK", disk, attribute, names().value(d, a));
    }
  }
}

void require(bool holds, const char *what) {
  if (!holds) throw std::runtime_error(what);
}

void look_up_database(std::size_t first, std::size_t last) {
  for (std::size_t d = first; d < last; ++d) {
    for (std::size_t a = 0; a < attribute_count; ++a) {
      const char **values = nullptr;
      const int n =
          get_asso_val("DISK", names().disks[d].c_str(), names().attributes[a].c_str(), &values);
      require(n == 1, "the database lost an attribute");
      benchmark::DoNotOptimize(values[0]);
      free(values);
    }
  }
}

/// The same model in SQL: named properties, whatever their letter case, their values, and links
/// between values that are seen from both sides.
class Sql {
 public:
  Sql() {
    check(sqlite3_open(":memory:", &db_));
    run("CREATE TABLE property (id INTEGER PRIMARY KEY, name TEXT NOT NULL COLLATE NOCASE UNIQUE)");
    run("CREATE TABLE value (id INTEGER PRIMARY KEY, property INTEGER NOT NULL, text TEXT NOT NULL,"
        " UNIQUE (property, text))");
    run("CREATE TABLE link (a INTEGER NOT NULL, property INTEGER NOT NULL, b INTEGER NOT NULL,"
        " PRIMARY KEY (a, property, b)) WITHOUT ROWID");
    prepare("INSERT OR IGNORE INTO property (name) VALUES (?)", &add_property_);
    prepare(
        "INSERT OR IGNORE INTO value (property, text)"
        " SELECT id, ? FROM property WHERE name = ?",
        &add_value_);
    prepare(
        "INSERT OR IGNORE INTO link SELECT v.id, w.property, w.id"
        " FROM property p JOIN value v ON v.property = p.id, property q"
        " JOIN value w ON w.property = q.id"
        " WHERE p.name = ? AND v.text = ? AND q.name = ? AND w.text = ?",
        &add_link_);
    prepare(
        "SELECT w.text FROM property p JOIN value v ON v.property = p.id, property q"
        " JOIN link l ON l.a = v.id AND l.property = q.id JOIN value w ON w.id = l.b"
        " WHERE p.name = 'DISK' AND v.text = ? AND q.name = ?",
        &look_up_);
  }
  Sql(const Sql &) = delete;
  Sql &operator=(const Sql &) = delete;
  ~Sql() {
    for (sqlite3_stmt *statement : {add_property_, add_value_, add_link_, look_up_}) {
      sqlite3_finalize(statement);
    }
    sqlite3_close(db_);
  }

  void build() {
    run("BEGIN");
    for (std::size_t d = 0; d < disk_count; ++d) {
      const char *disk = names().disks[d].c_str();
      store("DISK", disk);
      for (std::size_t a = 0; a < attribute_count; ++a) {
        const char *attribute = names().attributes[a].c_str();
        const char *value = names().value(d, a);
        store(attribute, value);
        step(add_link_, {"DISK", disk, attribute, value});
        step(add_link_, {attribute, value, "DISK", disk});
      }
    }
    run("COMMIT");
  }

  void look_up() {
    for (std::size_t d = 0; d < disk_count; ++d) {
      for (std::size_t a = 0; a < attribute_count; ++a) {
        bind(look_up_, {names().disks[d].c_str(), names().attributes[a].c_str()});
        require(sqlite3_step(look_up_) == SQLITE_ROW, "SQLite lost an attribute");
        benchmark::DoNotOptimize(sqlite3_column_text(look_up_, 0));
        sqlite3_reset(look_up_);
      }
    }
  }

 private:
  static void check(int result) { require(result == SQLITE_OK, "SQLite failed"); }
  void run(const char *sql) { check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr)); }
  void prepare(const char *sql, sqlite3_stmt **statement) {
    check(sqlite3_prepare_v2(db_, sql, -1, statement, nullptr));
  }
  static void bind(sqlite3_stmt *statement, std::initializer_list<const char *> texts) {
    int index = 0;
    for (const char *text : texts) {
      check(sqlite3_bind_text(statement, ++index, text, -1, SQLITE_STATIC));
    }
  }
  static void step(sqlite3_stmt *statement, std::initializer_list<const char *> texts) {
    bind(statement, texts);
    require(sqlite3_step(statement) == SQLITE_DONE, "SQLite did not take a row");
    sqlite3_reset(statement);
  }

  void store(const char *property, const char *text) {
    step(add_property_, {property});
    step(add_value_, {text, property});
  }

  sqlite3 *db_ = nullptr;
  sqlite3_stmt *add_property_ = nullptr;
  sqlite3_stmt *add_value_ = nullptr;
  sqlite3_stmt *add_link_ = nullptr;
  sqlite3_stmt *look_up_ = nullptr;
};

// Only building is timed on both sides, not what empties the store for the next round.

void build_ours(benchmark::State &state) {
  names();
  for (auto _ : state) {
    state.PauseTiming();
    init_property_list(large_lists());
    state.ResumeTiming();
    build_database();
  }
}

void build_sql(benchmark::State &state) {
  names();
  for (auto _ : state) {
    state.PauseTiming();
    auto sql = std::make_unique<Sql>();
    state.ResumeTiming();
    sql->build();
    state.PauseTiming();
    sql.reset();
    state.ResumeTiming();
  }
}

/// Builds the database for the look-ups once, in the heap of a young process.
void require_database() {
  static const bool built = (init_property_list(large_lists()), build_database(), true);
  benchmark::DoNotOptimize(built);
}

void look_up_ours(benchmark::State &state) {
  require_database();
  for (auto _ : state)
    look_up_database(0, disk_count);
}

void look_up_sql(benchmark::State &state) {
  Sql sql;
  sql.build();
  for (auto _ : state)
    sql.look_up();
}

/// The look-ups of all disks, divided among two threads.
void look_up_two_threads(benchmark::State &state) {
  require_database();
  for (auto _ : state) {
    std::thread other(look_up_database, 0, disk_count / 2);
    look_up_database(disk_count / 2, disk_count);
    other.join();
  }
}

/// Heap bytes of one association, both sides, malloc's own overhead included.
double bytes_for_an_association() {
  constexpr std::size_t count = 10000;
  init_property_list(large_lists());
  store("A", "one");
  for (std::size_t d = 0; d < count; ++d)
    store("DISK", names().disks[d].c_str());
  const std::size_t before = mallinfo2().uordblks;
  for (std::size_t d = 0; d < count; ++d)
    set_asso("DISK", names().disks[d].c_str(), "A", "one");
  return static_cast<double>(mallinfo2().uordblks - before) / count;
}

}  // namespace

void bench::register_database(std::vector<Comparison> &comparisons, std::vector<Figure> &figures) {
  figures.push_back(
      {"heap bytes for each association (both sides)", bytes_for_an_association, "bytes", 160});
  const auto add = [](const char *name, void (*function)(benchmark::State &)) {
    benchmark::RegisterBenchmark(name, function)
        ->Repetitions(5)
        ->ReportAggregatesOnly()
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  };
  add("look_up/kzddl", look_up_ours);
  add("look_up/sqlite", look_up_sql);
  add("look_up/kzddl_2_threads", look_up_two_threads);
  add("build/kzddl", build_ours);
  add("build/sqlite", build_sql);
  comparisons.push_back({"build 10,000 disks: times as fast as SQLite", "build/kzddl",
                         "build/sqlite", 5.0, Comparison::Sense::at_least});
  comparisons.push_back({"look up 80,000 attributes: times as fast as SQLite", "look_up/kzddl",
                         "look_up/sqlite", 10.0, Comparison::Sense::at_least});
  comparisons.push_back({"look up from 2 threads: throughput of 1", "look_up/kzddl_2_threads",
                         "look_up/kzddl", 1.7, Comparison::Sense::at_least});
}
