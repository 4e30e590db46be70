// The "status" signal parser and releaser on a payload of 10 streams, against two baselines:
// cJSON parsing and deleting the same text, and the floor any parser into the fixed record
// layout has (that parse plus allocating and freeing the ten zeroed stream records).
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <zolo/signals.h>

#include <string>

#include "ratio_reporter.h"

namespace {

std::string StatusPayload() {
  std::string payload = R"({"State":"recording","Restart":false,"Streams":[)";
  for (int i = 0; i < 10; ++i) {
    if (i > 0) payload += ",";
    payload += R"({"Name":"stream)" + std::to_string(i) +
               R"(","Destination":"rtmp://live.example.net/app/key)" + std::to_string(i) +
               R"(","Type":"network","Channel":"Video-Capture1","Duration":3600,"Error":0})";
  }
  return payload + "]}";
}

const std::string kPayload = StatusPayload();

void BM_status_parser(benchmark::State& state) {
  for (auto _ : state) {
    void* record = media_sig_status_parser(kPayload.c_str());
    benchmark::DoNotOptimize(record);
    media_sig_status_releaser(record);
  }
}

void BM_cjson_baseline(benchmark::State& state) {
  for (auto _ : state) {
    cJSON* json = cJSON_Parse(kPayload.c_str());
    benchmark::DoNotOptimize(json);
    cJSON_Delete(json);
  }
}

void BM_parse_and_records_floor(benchmark::State& state) {
  for (auto _ : state) {
    cJSON* json = cJSON_Parse(kPayload.c_str());
    benchmark::DoNotOptimize(json);
    auto* record = new media_sig_status();
    record->streams.resize(
        static_cast<size_t>(cJSON_GetArraySize(cJSON_GetObjectItem(json, "Streams"))));
    benchmark::DoNotOptimize(record->streams.data());
    cJSON_Delete(json);
    delete record;
  }
}

BENCHMARK(BM_status_parser)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_cjson_baseline)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_parse_and_records_floor)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  return zolo::bench::RunWithRatios({{"BM_status_parser", "BM_cjson_baseline"},
                                     {"BM_status_parser", "BM_parse_and_records_floor"}});
}
