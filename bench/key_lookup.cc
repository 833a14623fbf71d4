// One key to what it types: the component's table beside libxkbcommon's.
#include <benchmark/benchmark.h>
#include <linux/input-event-codes.h>
#include <xkbcommon/xkbcommon.h>

#include "bench/fail.h"
#include "input/linux_input_reader.h"

namespace quarlo::bench {
namespace {

// Every iteration looks up the keys of the main block, most of which type something.
constexpr int kFirst = KEY_ESC;
constexpr int kLast = KEY_SPACE;
constexpr int kIterations = 2000;

extern "C" __attribute__((noinline)) void lookUpInReader() {
  for (int code = kFirst; code <= kLast; ++code) {
    components::input::LinuxInputReader::Key key;
    char ch;
    components::input::LinuxInputReader::translateKey(code, 0, false, key, ch);
    benchmark::DoNotOptimize(key);
    benchmark::DoNotOptimize(ch);
  }
}

extern "C" __attribute__((noinline)) void lookUpInXkbcommon(xkb_state* state) {
  constexpr int kOffset = 8;  // from the kernel's codes to those of XKB
  for (int code = kFirst; code <= kLast; ++code) {
    const auto key = static_cast<xkb_keycode_t>(code + kOffset);
    char text[8];
    benchmark::DoNotOptimize(xkb_state_key_get_one_sym(state, key));
    benchmark::DoNotOptimize(xkb_state_key_get_utf8(state, key, text, sizeof text));
    benchmark::DoNotOptimize(text);
  }
}

void countKeys(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * (kLast - kFirst + 1)); }

void readerLooksUp(benchmark::State& state) {
  while (state.KeepRunning()) lookUpInReader();
  countKeys(state);
}
BENCHMARK(readerLooksUp)->Iterations(kIterations);

void xkbcommonLooksUp(benchmark::State& state) {
  xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
  xkb_rule_names names = {};
  names.layout = "us";
  xkb_keymap* keymap = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
  if (keymap == nullptr) fail("libxkbcommon cannot compile a US keyboard: is the package xkb-data installed?");
  xkb_state* keyboard = xkb_state_new(keymap);
  while (state.KeepRunning()) lookUpInXkbcommon(keyboard);
  countKeys(state);
  xkb_state_unref(keyboard);
  xkb_keymap_unref(keymap);
  xkb_context_unref(context);
}
BENCHMARK(xkbcommonLooksUp)->Iterations(kIterations);

}  // namespace
}  // namespace quarlo::bench

BENCHMARK_MAIN();
