// SPDX-License-Identifier: MIT
// A plugin for qemu's user emulation: counts the instructions that each thread executes and writes
// them at the end, a line for each, to the file that INSTRUCTION_COUNTS names.
// Debian has no header for plugins; what is used of version 1 is declared here.
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" {
struct qemu_plugin_tb;
struct qemu_info_t;
using TranslatedCallback = void (*)(uint64_t id, qemu_plugin_tb* block);
using ExecutedCallback = void (*)(unsigned thread, void* data);
using ExitCallback = void (*)(uint64_t id, void* data);
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id, TranslatedCallback callback);
void qemu_plugin_register_vcpu_tb_exec_cb(qemu_plugin_tb* block, ExecutedCallback callback,
                                          int registers, void* data);
void qemu_plugin_register_atexit_cb(uint64_t id, ExitCallback callback, void* data);
size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);

[[gnu::visibility("default")]] extern const int qemu_plugin_version = 1;
[[gnu::visibility("default")]] int qemu_plugin_install(uint64_t id, const qemu_info_t* info,
                                                       int count, char** arguments);
}

namespace {

constexpr size_t kThreads = 64;
std::array<std::atomic<uint64_t>, kThreads> executed;

void OnExecuted(unsigned thread, void* instructions) {
  executed[thread % kThreads].fetch_add(reinterpret_cast<uintptr_t>(instructions),
                                        std::memory_order_relaxed);
}

void OnTranslated(uint64_t, qemu_plugin_tb* block) {
  constexpr int kNoRegisters = 0;
  qemu_plugin_register_vcpu_tb_exec_cb(block, OnExecuted, kNoRegisters,
                                       reinterpret_cast<void*>(qemu_plugin_tb_n_insns(block)));
}

void OnExit(uint64_t, void*) {
  const char* const path = std::getenv("INSTRUCTION_COUNTS");
  std::FILE* const file = path != nullptr ? std::fopen(path, "w") : nullptr;
  if (file == nullptr) {
    return;  // whoever waits for the figures misses them
  }
  for (const auto& count : executed) {
    (void)std::fprintf(file, "%llu\n", static_cast<unsigned long long>(count.load()));
  }
  (void)std::fclose(file);
}

}  // namespace

int qemu_plugin_install(uint64_t id, const qemu_info_t*, int, char**) {
  qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslated);
  qemu_plugin_register_atexit_cb(id, OnExit, nullptr);
  return 0;
}
