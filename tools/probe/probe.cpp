// Loaded in front of a program (LD_PRELOAD), counts from where memory is allocated and how deep the
// stacks of threads grow. At the end of the process it writes to the file that PROBE_REPORT names:
//   alloc LIBRARY COUNT        allocations called for by code of that library
//   stack THREAD BYTES SIZE    the most that a thread has used of its stack, when it ended
// Allocations by the C++ library's own functions are counted for whoever called those.
#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr int MostLibraries = 64;
struct Count {
  std::atomic<void*> base{nullptr};
  std::atomic<unsigned long> calls{0};
  char name[64] = "";
};
Count counts[MostLibraries];

struct Stack {
  char name[16];
  unsigned long used;
  unsigned long size;
};
constexpr int MostStacks = 256;
Stack stacks[MostStacks];
std::atomic<int> stackCount{0};

bool IsRuntime(const char* path) {
  return std::strstr(path, "libstdc++") || std::strstr(path, "probe") ||
         std::strstr(path, "libc.so");
}

/// Counts one allocation for the first library on the stack that is not a runtime library.
void Note() {
  static thread_local bool busy = false;
  if (busy) return;
  busy = true;
  void* frames[12];
  const int depth = backtrace(frames, 12);
  for (int i = 1; i < depth; ++i) {
    Dl_info info;
    if (!dladdr(frames[i], &info) || !info.dli_fname || IsRuntime(info.dli_fname)) continue;
    for (Count& count : counts) {
      void* free = nullptr;
      if (count.base.compare_exchange_strong(free, info.dli_fbase)) {
        const char* slash = std::strrchr(info.dli_fname, '/');
        std::snprintf(count.name, sizeof count.name, "%s", slash ? slash + 1 : info.dli_fname);
      }
      if (count.base != info.dli_fbase) continue;
      ++count.calls;
      busy = false;
      return;
    }
  }
  busy = false;
}

constexpr unsigned char Paint = 0xA5;

struct Start {
  void* (*routine)(void*);
  void* argument;
};

/// The unused part of the stack is painted when the thread begins; what is still painted at its end
/// was never used.
void* Measured(void* given) {
  const Start start = *static_cast<Start*>(given);
  delete static_cast<Start*>(given);
  pthread_attr_t attributes;
  void* low = nullptr;
  std::size_t size = 0;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getstack(&attributes, &low, &size);
  pthread_attr_destroy(&attributes);
  auto* const bottom = static_cast<volatile unsigned char*>(low);
  constexpr std::size_t OwnFrame = 1024;
  const auto here = reinterpret_cast<std::size_t>(__builtin_frame_address(0));
  const std::size_t unused = here - reinterpret_cast<std::size_t>(low) - OwnFrame;
  for (std::size_t i = 0; i < unused; ++i) bottom[i] = Paint;
  void* const result = start.routine(start.argument);
  std::size_t untouched = 0;
  while (untouched < unused && bottom[untouched] == Paint) ++untouched;
  const int index = stackCount++;
  if (index < MostStacks) {
    pthread_getname_np(pthread_self(), stacks[index].name, sizeof stacks[index].name);
    stacks[index].used = size - untouched;
    stacks[index].size = size;
  }
  return result;
}

struct Report {
  ~Report() {
    const char* const path = std::getenv("PROBE_REPORT");
    std::FILE* const file = path ? std::fopen(path, "w") : nullptr;
    if (!file) return;
    for (const Count& count : counts) {
      if (count.base) std::fprintf(file, "alloc %s %lu\n", count.name, count.calls.load());
    }
    for (int i = 0; i < stackCount && i < MostStacks; ++i) {
      std::fprintf(file, "stack %s %lu %lu\n", stacks[i].name, stacks[i].used, stacks[i].size);
    }
    std::fclose(file);
  }
} report;

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) {
  Note();
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  Note();
  return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  Note();
  return __libc_realloc(block, size);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  return next(thread, attributes, Measured, new Start{routine, argument});
}

}  // extern "C"
