// The web page's two large requests on the workstation's own store, lens and camera description.
#include <benchmark/benchmark.h>
#include <syslog.h>

#include <map>
#include <memory>
#include <string>

#include "app/process_state.h"
#include "config/parameter_controller.h"
#include "config/request_handler.h"
#include "platform/workstation/parameters/parameter_batch.h"
#include "tests/platform/state_folder.h"

namespace {

using Query = std::map<std::string, std::string>;

/// A whole set of settings; every coordinate and number is another one with another `shift`.
Query settings(int shift) {
  const std::string number = "0.5" + std::to_string(shift);
  const std::string flag = std::to_string(shift % 2);
  Query query{{"action", "set_all_parameters"},
              {"SN", number},
              {"POB_ON", flag},
              {"FP_ON", flag},
              {"DO", flag},
              {"AO", flag},
              {"SDO", "1280x72" + flag},
              {"SAO", "640x36" + flag},
              {"SCM", flag},
              {"XM", "1.5" + flag},
              {"YM", "2.0" + flag},
              {"XR", "0.37" + flag},
              {"YR", "0.52" + flag},
              {"XG", "0.51" + flag},
              {"YG", "0.52" + flag},
              {"XB", "0.53" + flag},
              {"YB", "0.82" + flag},
              {"XY", "0.30" + flag},
              {"YY", "0.82" + flag}};
  for (const char* area : {"AOI1_", "AOI2_", "AOI3_", "EX1_", "EX2_", "EX3_"}) {
    for (int i = 0; i < 8; ++i) {
      query[area + std::string(1, "XY"[i % 2]) + std::to_string(i / 2 + 1)] = std::to_string(10 * i + shift);
    }
    query[area + std::string("ON")] = flag;
  }
  return query;
}

/// The program's settings in a state directory of their own.
struct Program {
  Program() {
    state.write("video.mp4", "");
    state.write("camera.json", R"({"source": "video.mp4"})");
    setenv("VELMOR_MANIFEST", SOURCE_DIRECTORY "/package/manifest.json", 1);
    openlog("control_benchmark", 0, LOG_USER);
    g_StreamWidth = 1280;
    g_StreamHeight = 720;
    g_ParameterController.init_controller("velmor_care");
  }

  /// Bytes of the reply.
  static gsize ask(Query& query) {
    const std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)> table(g_hash_table_new(g_str_hash, g_str_equal),
                                                                           &g_hash_table_unref);
    for (auto& [key, value] : query) g_hash_table_insert(table.get(), const_cast<char*>(key.c_str()), value.data());
    const std::unique_ptr<GOutputStream, decltype(&g_object_unref)> reply(g_memory_output_stream_new_resizable(),
                                                                          &g_object_unref);
    const workstation::ParameterBatch batch;  // as the web server has it
    request_handler("control.cgi", "GET", nullptr, table.get(), reply.get(), nullptr);
    return g_memory_output_stream_get_data_size(G_MEMORY_OUTPUT_STREAM(reply.get()));
  }

  StateFolder state;
};

void BM_ReadingTheSettings(benchmark::State& state) {
  const Program program;
  Query query{{"action", "get_all_parameters"}};
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(Program::ask(query));
}
BENCHMARK(BM_ReadingTheSettings)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SavingWhatIsStoredAlready(benchmark::State& state) {
  const Program program;
  Query query = settings(1);
  for ([[maybe_unused]] auto _ : state) Program::ask(query);
}
BENCHMARK(BM_SavingWhatIsStoredAlready)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SavingWithEveryValueChanged(benchmark::State& state) {
  const Program program;
  int round = 0;
  for ([[maybe_unused]] auto _ : state) {
    Query query = settings(++round % 2);
    Program::ask(query);
  }
}
BENCHMARK(BM_SavingWithEveryValueChanged)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
