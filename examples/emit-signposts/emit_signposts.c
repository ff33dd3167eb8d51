/* emit-signposts: marks a few signposts the way a program would.
 *
 * It times a pretend download as an interval with string and number
 * arguments and attributes, and marks an event when it is done. Look at the
 * entries with
 *   journalctl MESSAGE_ID=0c7e0296aa5f4fc7af2af7a970a22d31 -o json
 *
 * Built with the project, or against an installed library:
 *   cc emit_signposts.c $(pkg-config --cflags --libs lumvane-signpost) -o emit-signposts
 */
#include <lumvane/signpost.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

/* One description per call site, reused by every begin, end and event. */
static const lumvane_signpost download = {
    .subsystem = "org.example.fetcher",
    .category = "network",
    .name = "download",
    .scope = LUMVANE_SIGNPOST_SCOPE_PROCESS,
    .flags = LUMVANE_SIGNPOST_TELEMETRY,
};

static const lumvane_signpost finished = {
    .subsystem = "org.example.fetcher",
    .category = "network",
    .name = "all-done",
    .scope = LUMVANE_SIGNPOST_SCOPE_PROCESS,
    .flags = LUMVANE_SIGNPOST_TELEMETRY,
};

static int report(const char *what, int r) {
  if (r < 0) fprintf(stderr, "emit-signposts: %s: %s\n", what, strerror(-r));
  return r < 0;
}

int main(int argc, char **argv) {
  if (argc > 1) {
    printf("Usage: %s\nMarks a download interval and an event in the systemd journal.\n", argv[0]);
    return strcmp(argv[1], "--help") == 0 ? 0 : 2;
  }
  const lumvane_signpost_attribute attributes[] = {{"protocol", "https"}, {"retries", "0"}};
  lumvane_signpost_args begin_args = {
      .strings = {{"Host", "downloads.example.org"}},
      .attributes = attributes,
      .attribute_count = 2,
  };
  uint64_t id = lumvane_signpost_id_generate();
  int failed = report("begin", lumvane_signpost_begin(&download, id, &begin_args));

  struct timespec pause = {0, 20 * 1000 * 1000};
  nanosleep(&pause, NULL); /* the work being timed */

  lumvane_signpost_args end_args = {
      .numbers = {{"Bytes", LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = 1048576}},
                  {"Ratio", LUMVANE_SIGNPOST_NUMBER_DOUBLE, {.d = 0.75}}},
  };
  failed |= report("end", lumvane_signpost_end(&download, id, &end_args));
  failed |= report("event", lumvane_signpost_event(&finished, 0, NULL));
  if (!failed) printf("marked interval %llu and one event\n", (unsigned long long)id);
  return failed;
}
