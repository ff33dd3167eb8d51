/* Signpost IDs: one process-wide atomic counter started from a random point.
 *
 * A counter makes IDs unique within the process for 2^64 calls; the random
 * start keeps processes apart, which system-scope signposts need. A forked
 * child inherits the counter, so it draws a new start in a pthread_atfork
 * child handler (which runs single-threaded, before fork() returns). */
#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include "lumvane/signpost.h"

#define EXPORT __attribute__((visibility("default")))

static _Atomic uint64_t next_id;
static pthread_once_t id_once = PTHREAD_ONCE_INIT;

static uint64_t mix64(uint64_t x) {
  x += UINT64_C(0x9e3779b97f4a7c15);
  x = (x ^ (x >> 30)) * UINT64_C(0xbf58476d1ce4e5b9);
  x = (x ^ (x >> 27)) * UINT64_C(0x94d049bb133111eb);
  return x ^ (x >> 31);
}

static void seed_ids(void) {
  uint64_t start = 0;
  if (getrandom(&start, sizeof start, GRND_NONBLOCK) != (ssize_t)sizeof start) {
    /* Early in boot the pool may not be ready: fall back on what tells this
     * process and moment apart. */
    struct timespec now = {0, 0};
    clock_gettime(CLOCK_BOOTTIME, &now);
    start = mix64((uint64_t)getpid() ^
                  mix64((uint64_t)now.tv_sec * 1000000000u + (uint64_t)now.tv_nsec));
  }
  atomic_store(&next_id, start);
}

static void init_ids(void) {
  seed_ids();
  /* On failure (ENOMEM) a child keeps its parent's sequence; its IDs are
   * still unique within itself. */
  (void)pthread_atfork(NULL, NULL, seed_ids);
}

EXPORT uint64_t lumvane_signpost_id_generate(void) {
  pthread_once(&id_once, init_ids);
  uint64_t id;
  do {
    id = atomic_fetch_add_explicit(&next_id, 1, memory_order_relaxed);
  } while (id == 0);
  return id;
}

EXPORT unsigned lumvane_signpost_version(void) { return LUMVANE_SIGNPOST_VERSION; }
