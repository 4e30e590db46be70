// What the database benchmarks share: a fresh media database to measure on, and the
// hand-written baseline reader (every row of a prepared statement copied into plain
// vectors, as any caller of raw sqlite3 would have to).
#pragma once

#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <sqlite3.h>

#include <zolo_model/media_model.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "model_fixture.h"
#include "sandbox.h"

namespace zolo::bench {

// No syslog lines from the benchmarks, and the source tree found without ctest.
inline void SetBenchEnvironment() {
  setenv("OVIK_LOG_SYSLOG", "0", 1);
  if (std::getenv("ZOLO_SOURCE_DIR") == nullptr)
    setenv("ZOLO_SOURCE_DIR", ZOLO_SOURCE_DIR_DEFAULT, 1);
}

// The default configuration and initial SQL below `sandbox`, as zm_init(true) expects them.
inline void LayOutAppliance(zolo::test::Sandbox& sandbox) {
  std::string src = zolo::test::SourceDir();
  sandbox.WriteFile("/etc/media.conf", zolo::test::ReadFile(src + "/data/media.conf"));
  sandbox.WriteFile("/usr/share/media/initial.sql",
                    zolo::test::ReadFile(src + "/data/initial.sql"));
  sandbox.MakeDir("/var/lib/zolo");
}

// A fresh media database made from the tree's initial SQL inside `sandbox`, connected as the
// model's database. Its path, or "" when it cannot be made.
inline std::string OpenBenchDatabase(zolo::test::Sandbox& sandbox) {
  SetBenchEnvironment();
  std::string path = sandbox.Path("/media.db");
  return MediaModel::Instance()->Initialize(path, zolo::test::InitialSqlPath()) == 0 ? path : "";
}

struct RawRow {
  std::vector<std::string> texts;
  std::vector<int> numbers;
};

// Steps `statement` to its end, appending each row to `out`, then resets it. With
// `json_columns`, those columns are also decoded as JSON, as records with parameter texts
// need.
inline void RawQuery(sqlite3_stmt* statement, std::vector<RawRow>* out,
                     const std::vector<int>& json_columns = {}) {
  int columns = sqlite3_column_count(statement);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    RawRow row;
    for (int column = 0; column < columns; ++column) {
      if (sqlite3_column_type(statement, column) == SQLITE_TEXT) {
        const unsigned char* value = sqlite3_column_text(statement, column);
        row.texts.emplace_back(reinterpret_cast<const char*>(value));
      } else {
        row.numbers.push_back(sqlite3_column_int(statement, column));
      }
    }
    for (int column : json_columns) {
      cJSON* json =
          cJSON_Parse(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)));
      benchmark::DoNotOptimize(cJSON_GetObjectItem(json, "latency"));
      cJSON_Delete(json);
    }
    out->push_back(std::move(row));
  }
  sqlite3_reset(statement);
}

}  // namespace zolo::bench
