/* Building and sending one signpost entry.
 *
 * The entry is assembled as "FIELD=value" items in one buffer (on the stack
 * for the usual sizes, on the heap beyond them) and handed to
 * sd_journal_sendv() in a single call, so journald stores it whole or not at
 * all. Nothing here is shared between threads except the ID counter. */
#define _GNU_SOURCE
#define SD_JOURNAL_SUPPRESS_LOCATION /* no CODE_FILE/CODE_LINE/CODE_FUNC fields */

#include "lumvane/signpost.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <time.h>
#include <unistd.h>

#include "signpost_number.h"

#define EXPORT __attribute__((visibility("default")))

/* Where sd_journal_sendv() sends; libsystemd has this path built in. */
static const char journal_socket[] = "/run/systemd/journal/socket";

enum { STACK_BYTES = 2048, STACK_ITEMS = 48 };

/* Items are recorded as offsets into `buf` while it may still move, and
 * turned into pointers just before sending. */
struct entry {
  char *buf;
  size_t used, size;
  struct iovec *items;
  size_t count, capacity;
  int heap_buf, heap_items, failed;
};

/* A block of at least `need` elements of `elem` bytes holding the first
 * `*capacity` of `block`, or NULL. The first growth leaves the stack. */
static void *grow(void *block, int *on_heap, size_t elem, size_t *capacity, size_t need) {
  size_t n = *capacity;
  while (n < need) {
    if (n > SIZE_MAX / 2 / elem) return NULL;
    n *= 2;
  }
  void *bigger = *on_heap ? realloc(block, n * elem) : malloc(n * elem);
  if (bigger == NULL) return NULL;
  if (!*on_heap) memcpy(bigger, block, *capacity * elem);
  *on_heap = 1;
  *capacity = n;
  return bigger;
}

/* Appends the item `field`=`a`, or `field`=`a`=`b` when `b` is given. */
static void add_item(struct entry *e, const char *field, const char *a, size_t alen, const char *b,
                     size_t blen) {
  if (e->failed) return;
  size_t flen = strlen(field);
  size_t len = flen + 1 + alen + (b ? 1 + blen : 0);
  size_t need = e->used + len;
  if (need > e->size) {
    char *buf = grow(e->buf, &e->heap_buf, 1, &e->size, need);
    if (buf == NULL) {
      e->failed = -ENOMEM;
      return;
    }
    e->buf = buf;
  }
  if (e->count == e->capacity) {
    struct iovec *items = grow(e->items, &e->heap_items, sizeof *items, &e->capacity, e->count + 1);
    if (items == NULL) {
      e->failed = -ENOMEM;
      return;
    }
    e->items = items;
  }
  char *p = e->buf + e->used;
  memcpy(p, field, flen);
  p += flen;
  *p++ = '=';
  if (alen > 0) memcpy(p, a, alen);
  p += alen;
  if (b != NULL) {
    *p++ = '=';
    if (blen > 0) memcpy(p, b, blen);
  }
  e->items[e->count].iov_base = (void *)(uintptr_t)e->used;
  e->items[e->count].iov_len = len;
  e->count++;
  e->used = need;
}

static void add(struct entry *e, const char *field, const char *value, size_t len) {
  add_item(e, field, value, len, NULL, 0);
}

static void add_text(struct entry *e, const char *field, const char *value) {
  add(e, field, value ? value : "", value ? strlen(value) : 0);
}

static void add_unsigned(struct entry *e, const char *field, uint64_t value) {
  lumvane_signpost_number n = {field, LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = value}};
  char text[SIGNPOST_NUMBER_TEXT_MAX];
  int len = signpost_format_number(&n, text);
  add(e, field, text, (size_t)len);
}

static int valid_key(const char *key) {
  return key != NULL && key[0] != '\0' && strchr(key, '=') == NULL;
}

static int check_args(const lumvane_signpost *sp, const lumvane_signpost_args *args) {
  for (int i = 0; i < 2; ++i) {
    const lumvane_signpost_number *n = &args->numbers[i];
    if (n->kind == LUMVANE_SIGNPOST_NUMBER_UNUSED) continue;
    if (n->name == NULL || n->kind > LUMVANE_SIGNPOST_NUMBER_DOUBLE) return -EINVAL;
  }
  if (args->attribute_count > 0 && args->attributes == NULL) return -EINVAL;
  for (size_t i = 0; i < args->attribute_count; ++i) {
    if (!valid_key(args->attributes[i].key)) return -EINVAL;
    /* The journal keeps no order among repeated fields, so a key given
     * twice could not be read back as one value. */
    for (size_t j = 0; j < i; ++j)
      if (strcmp(args->attributes[i].key, args->attributes[j].key) == 0) return -EINVAL;
  }
  if (args->object_pid < 0) return -EINVAL;
  /* A thread ID means nothing on behalf of another process. */
  if (args->object_pid != 0 && sp->scope == LUMVANE_SIGNPOST_SCOPE_THREAD) return -EINVAL;
  return 0;
}

static const char *const type_names[] = {"begin", "end", "event"};
static const char *const scope_names[] = {"process", "thread", "system"};
static const char *const string_fields[2][2] = {
    {"SIGNPOST_STRING1_NAME", "SIGNPOST_STRING1_VALUE"},
    {"SIGNPOST_STRING2_NAME", "SIGNPOST_STRING2_VALUE"}};
static const char *const number_fields[2][2] = {
    {"SIGNPOST_NUMBER1_NAME", "SIGNPOST_NUMBER1_VALUE"},
    {"SIGNPOST_NUMBER2_NAME", "SIGNPOST_NUMBER2_VALUE"}};

static void add_message(struct entry *e, lumvane_signpost_type type, const lumvane_signpost *sp,
                        uint64_t id, const lumvane_signpost_args *args) {
  if (args->message != NULL) {
    add_text(e, "MESSAGE", args->message);
    return;
  }
  /* "signpost begin SUBSYSTEM/CATEGORY/NAME ID" */
  char idtext[SIGNPOST_NUMBER_TEXT_MAX];
  lumvane_signpost_number n = {"", LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = id}};
  signpost_format_number(&n, idtext);
  const char *name = sp->name ? sp->name : "";
  const char *parts[] = {"signpost ",  type_names[type], " ",  sp->subsystem, "/",
                         sp->category, *name ? "/" : "", name, " ",           idtext};
  size_t len = 0;
  for (size_t i = 0; i < sizeof parts / sizeof *parts; ++i) len += strlen(parts[i]);
  char stack[256];
  char *text = len < sizeof stack ? stack : malloc(len + 1);
  if (text == NULL) {
    e->failed = -ENOMEM;
    return;
  }
  char *p = text;
  for (size_t i = 0; i < sizeof parts / sizeof *parts; ++i) {
    size_t l = strlen(parts[i]);
    memcpy(p, parts[i], l);
    p += l;
  }
  add(e, "MESSAGE", text, len);
  if (text != stack) free(text);
}

EXPORT int lumvane_signpost_journal_available(void) {
  struct stat st;
  if (stat(journal_socket, &st) != 0 || !S_ISSOCK(st.st_mode)) return -ENOTCONN;
  return 0;
}

EXPORT int lumvane_signpost_emit(lumvane_signpost_type type, const lumvane_signpost *sp,
                                 uint64_t id, const lumvane_signpost_args *args) {
  static const lumvane_signpost_args no_args;
  if (args == NULL) args = &no_args;
  if (sp == NULL || (unsigned)type > LUMVANE_SIGNPOST_EVENT ||
      (unsigned)sp->scope > LUMVANE_SIGNPOST_SCOPE_SYSTEM || sp->subsystem == NULL ||
      sp->subsystem[0] == '\0' || sp->category == NULL || sp->category[0] == '\0')
    return -EINVAL;
  if (id == 0) {
    if (type != LUMVANE_SIGNPOST_EVENT) return -EINVAL;
    id = lumvane_signpost_id_generate();
  }
  int r = check_args(sp, args);
  if (r < 0) return r;

  /* Taken first, so that they describe the moment of the call. */
  struct timespec boottime = {0, 0};
  clock_gettime(CLOCK_BOOTTIME, &boottime);
  pid_t tid = gettid();

  char stack_buf[STACK_BYTES];
  struct iovec stack_items[STACK_ITEMS];
  struct entry e = {stack_buf, 0, sizeof stack_buf, stack_items, 0, STACK_ITEMS, 0, 0, 0};

  add_text(&e, "MESSAGE_ID", LUMVANE_SIGNPOST_MESSAGE_ID);
  add_message(&e, type, sp, id, args);
  add_text(&e, "PRIORITY", "6");
  add_text(&e, "SIGNPOST_TYPE", type_names[type]);
  add_unsigned(&e, "SIGNPOST_ID", id);
  add_text(&e, "SIGNPOST_SCOPE", scope_names[sp->scope]);
  add_text(&e, "SIGNPOST_SUBSYSTEM", sp->subsystem);
  add_text(&e, "SIGNPOST_CATEGORY", sp->category);
  if (sp->name != NULL && sp->name[0] != '\0') add_text(&e, "SIGNPOST_NAME", sp->name);
  if (sp->flags & LUMVANE_SIGNPOST_TELEMETRY) add_text(&e, "SIGNPOST_TELEMETRY", "1");
  if ((sp->flags & LUMVANE_SIGNPOST_ANIMATION) && type == LUMVANE_SIGNPOST_BEGIN)
    add_text(&e, "SIGNPOST_ANIMATION", "1");
  for (int i = 0; i < 2; ++i) {
    const lumvane_signpost_string *s = &args->strings[i];
    if (s->name == NULL) continue;
    add_text(&e, string_fields[i][0], s->name);
    add_text(&e, string_fields[i][1], s->value);
  }
  for (int i = 0; i < 2; ++i) {
    const lumvane_signpost_number *n = &args->numbers[i];
    if (n->kind == LUMVANE_SIGNPOST_NUMBER_UNUSED) continue;
    char text[SIGNPOST_NUMBER_TEXT_MAX];
    int len = signpost_format_number(n, text);
    if (len < 0 && e.failed == 0) e.failed = len;
    add_text(&e, number_fields[i][0], n->name);
    if (len >= 0) add(&e, number_fields[i][1], text, (size_t)len);
  }
  for (size_t i = 0; i < args->attribute_count; ++i) {
    const lumvane_signpost_attribute *a = &args->attributes[i];
    add_item(&e, "SIGNPOST_ATTRIBUTE", a->key, strlen(a->key), a->value ? a->value : "",
             a->value ? strlen(a->value) : 0);
  }
  add_unsigned(&e, "SIGNPOST_TID", (uint64_t)tid);
  add_unsigned(&e, "SIGNPOST_BOOTTIME_NSEC",
               (uint64_t)boottime.tv_sec * UINT64_C(1000000000) + (uint64_t)boottime.tv_nsec);
  if (args->object_pid != 0) {
    add_unsigned(&e, "OBJECT_PID", (uint64_t)args->object_pid);
    if (args->object_exe != NULL) add_text(&e, "OBJECT_EXE", args->object_exe);
    if (args->object_comm != NULL) add_text(&e, "OBJECT_COMM", args->object_comm);
  }

  r = e.failed;
  if (r == 0) {
    for (size_t i = 0; i < e.count; ++i)
      e.items[i].iov_base = e.buf + (uintptr_t)e.items[i].iov_base;
    /* Checked last, just before sending: libsystemd answers success when
     * the socket is missing and the entry is lost. */
    r = lumvane_signpost_journal_available();
    if (r == 0) r = sd_journal_sendv(e.items, (int)e.count);
    if (r > 0) r = 0;
  }
  if (e.heap_buf) free(e.buf);
  if (e.heap_items) free(e.items);
  return r;
}

EXPORT int lumvane_signpost_begin(const lumvane_signpost *sp, uint64_t id,
                                  const lumvane_signpost_args *args) {
  return lumvane_signpost_emit(LUMVANE_SIGNPOST_BEGIN, sp, id, args);
}

EXPORT int lumvane_signpost_end(const lumvane_signpost *sp, uint64_t id,
                                const lumvane_signpost_args *args) {
  return lumvane_signpost_emit(LUMVANE_SIGNPOST_END, sp, id, args);
}

EXPORT int lumvane_signpost_event(const lumvane_signpost *sp, uint64_t id,
                                  const lumvane_signpost_args *args) {
  return lumvane_signpost_emit(LUMVANE_SIGNPOST_EVENT, sp, id, args);
}
