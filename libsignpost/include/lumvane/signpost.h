/* liblumvane-signpost: marks signposts in the systemd journal.
 *
 * A signpost is one journal entry carrying MESSAGE_ID
 * 0c7e0296aa5f4fc7af2af7a970a22d31 and SIGNPOST_* fields: a begin and an end
 * with the same subsystem, category, name and ID form an interval, an event
 * stands alone. lumvaned reads these entries back once a day.
 *
 * Every function is safe to call from any thread (not from a signal
 * handler: large entries allocate), never aborts and keeps no pointer it was
 * given after it returns. A send is one
 * sd_journal_sendv(3) call; the library holds no lock of its own while
 * sending, so it blocks only as long as that call does (it waits while
 * journald's receive queue is full).
 *
 * Errors come back as negative errno values:
 *   -EINVAL    a required field is missing or a value is outside its domain
 *              (see each function);
 *   -ENOTCONN  no journal socket at /run/systemd/journal/socket (where
 *              libsystemd alone would drop the entry and report success);
 *              a socket that nobody reads gives -ECONNREFUSED;
 *   -ENOMEM    out of memory while building the entry;
 *   other      what sd_journal_sendv(3) returned.
 *
 * Signpost arguments are stored in the journal like any other log field and
 * can be read by whoever may read the journal: never put secrets in them.
 */
#ifndef LUMVANE_SIGNPOST_H
#define LUMVANE_SIGNPOST_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this header. lumvane_signpost_version() gives the version of
 * the library actually loaded; the major number changes when the ABI does. */
#define LUMVANE_SIGNPOST_VERSION_MAJOR 1
#define LUMVANE_SIGNPOST_VERSION_MINOR 0
#define LUMVANE_SIGNPOST_VERSION \
  ((LUMVANE_SIGNPOST_VERSION_MAJOR << 16) | LUMVANE_SIGNPOST_VERSION_MINOR)

/* The MESSAGE_ID that marks a journal entry as a signpost. */
#define LUMVANE_SIGNPOST_MESSAGE_ID "0c7e0296aa5f4fc7af2af7a970a22d31"

/* Which begins and ends pair: those of one process, of one thread, or of any
 * process on the machine. */
typedef enum lumvane_signpost_scope {
  LUMVANE_SIGNPOST_SCOPE_PROCESS = 0,
  LUMVANE_SIGNPOST_SCOPE_THREAD = 1,
  LUMVANE_SIGNPOST_SCOPE_SYSTEM = 2
} lumvane_signpost_scope;

typedef enum lumvane_signpost_type {
  LUMVANE_SIGNPOST_BEGIN = 0,
  LUMVANE_SIGNPOST_END = 1,
  LUMVANE_SIGNPOST_EVENT = 2
} lumvane_signpost_type;

/* Flags of struct lumvane_signpost. */
#define LUMVANE_SIGNPOST_TELEMETRY 0x1u /* SIGNPOST_TELEMETRY=1: may be reported */
#define LUMVANE_SIGNPOST_ANIMATION 0x2u /* SIGNPOST_ANIMATION=1, on begins only */

/* What a signpost is: usually one static const object per call site. */
typedef struct lumvane_signpost {
  const char *subsystem; /* required, non-empty */
  const char *category;  /* required, non-empty */
  const char *name;      /* NULL or "" for none */
  lumvane_signpost_scope scope;
  unsigned flags; /* LUMVANE_SIGNPOST_TELEMETRY | ..._ANIMATION */
} lumvane_signpost;

/* A string argument; a NULL name leaves the slot unused. */
typedef struct lumvane_signpost_string {
  const char *name;
  const char *value; /* NULL is written as "" */
} lumvane_signpost_string;

typedef enum lumvane_signpost_number_kind {
  LUMVANE_SIGNPOST_NUMBER_UNUSED = 0,
  LUMVANE_SIGNPOST_NUMBER_INT64 = 1,
  LUMVANE_SIGNPOST_NUMBER_UINT64 = 2,
  LUMVANE_SIGNPOST_NUMBER_DOUBLE = 3
} lumvane_signpost_number_kind;

/* A number argument, written as decimal text that reads back as the same
 * value and kind (a double always carries a fraction or an exponent; NaN and
 * infinities are written as "nan", "inf" and "-inf", which readers treat as
 * no value). */
typedef struct lumvane_signpost_number {
  const char *name; /* required unless kind is ..._UNUSED */
  lumvane_signpost_number_kind kind;
  union {
    int64_t i;
    uint64_t u;
    double d;
  } value;
} lumvane_signpost_number;

/* An interval attribute, written as SIGNPOST_ATTRIBUTE=key=value. A key is
 * non-empty, holds no '=' and appears at most once per entry. */
typedef struct lumvane_signpost_attribute {
  const char *key;
  const char *value; /* NULL is written as "" */
} lumvane_signpost_attribute;

/* The optional parts of one entry. Zero-initialise it and fill in what is
 * needed; a NULL pointer instead of the whole struct means none of them. */
typedef struct lumvane_signpost_args {
  lumvane_signpost_string strings[2];
  lumvane_signpost_number numbers[2];
  const lumvane_signpost_attribute *attributes;
  size_t attribute_count;
  /* MESSAGE, for people reading journalctl; NULL makes one from the type,
   * subsystem, category and name. */
  const char *message;
  /* Non-zero: the entry is sent on behalf of that process (OBJECT_PID), with
   * OBJECT_EXE and OBJECT_COMM when given. journald trusts these only from
   * privileged senders; readers take them as the sender's word. */
  pid_t object_pid;
  const char *object_exe;
  const char *object_comm;
} lumvane_signpost_args;

/* The runtime version, as LUMVANE_SIGNPOST_VERSION. */
unsigned lumvane_signpost_version(void);

/* A signpost ID that no earlier call in this process returned: never 0, and
 * (started from a random point, afresh in a forked child) unlikely to meet
 * another process's IDs, which matters for system scope. */
uint64_t lumvane_signpost_id_generate(void);

/* Sends one entry of the given type. `id` must be non-zero, except that an
 * event given 0 takes a fresh ID. LUMVANE_SIGNPOST_ANIMATION is written on
 * begins only, so one signpost object serves both ends of an interval. A
 * missing subsystem or category, an unknown type, scope or number kind, a
 * number without a name, a bad or repeated attribute key, and a thread-scope
 * signpost sent on behalf of another process are -EINVAL. Returns 0 once the
 * journal took the entry. */
int lumvane_signpost_emit(lumvane_signpost_type type, const lumvane_signpost *signpost, uint64_t id,
                          const lumvane_signpost_args *args);

/* Shorthands for lumvane_signpost_emit(). */
int lumvane_signpost_begin(const lumvane_signpost *signpost, uint64_t id,
                           const lumvane_signpost_args *args);
int lumvane_signpost_end(const lumvane_signpost *signpost, uint64_t id,
                         const lumvane_signpost_args *args);
int lumvane_signpost_event(const lumvane_signpost *signpost, uint64_t id,
                           const lumvane_signpost_args *args);

/* Whether a journal socket is where sd_journal_sendv(3) sends
 * (/run/systemd/journal/socket): 0 when it is, else -ENOTCONN. Without it,
 * sd_journal_sendv(3) reports success and drops the entry; every emit checks
 * this first. */
int lumvane_signpost_journal_available(void);

#ifdef __cplusplus
}
#endif

#endif /* LUMVANE_SIGNPOST_H */
