#define _GNU_SOURCE
#include "signpost_number.h"

#include <errno.h>
#include <inttypes.h>
#include <locale.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* printf and strtod follow LC_NUMERIC, which the calling program may have
 * set to a locale with a decimal comma; doubles are written and checked in
 * the C locale, switched to for this thread only. */
static locale_t c_locale;
static pthread_once_t c_locale_once = PTHREAD_ONCE_INIT;

static void make_c_locale(void) { c_locale = newlocale(LC_ALL_MASK, "C", (locale_t)0); }

static int format_unsigned(uint64_t value, int negative, char *out) {
  char digits[24];
  size_t n = 0;
  do {
    digits[n++] = (char)('0' + value % 10);
    value /= 10;
  } while (value != 0);
  size_t len = 0;
  if (negative) out[len++] = '-';
  while (n > 0) out[len++] = digits[--n];
  out[len] = '\0';
  return (int)len;
}

static int copy_text(const char *text, char *out) {
  size_t len = strlen(text);
  memcpy(out, text, len + 1);
  return (int)len;
}

static int format_double(double value, char *out) {
  if (isnan(value)) return copy_text("nan", out);
  if (isinf(value)) return copy_text(value > 0 ? "inf" : "-inf", out);
  pthread_once(&c_locale_once, make_c_locale);
  if (c_locale == (locale_t)0) return -ENOMEM;
  locale_t previous = uselocale(c_locale);
  int len = 0;
  for (int precision = 15; precision <= 17; ++precision) {
    len = snprintf(out, SIGNPOST_NUMBER_TEXT_MAX - 2, "%.*g", precision, value);
    if (strtod_l(out, NULL, c_locale) == value) break;
  }
  uselocale(previous);
  if (len < 0 || len >= SIGNPOST_NUMBER_TEXT_MAX - 2) return -EINVAL;
  if (strpbrk(out, ".e") == NULL) { /* "3" or "-0" would read as integers */
    memcpy(out + len, ".0", 3);
    len += 2;
  }
  return len;
}

int signpost_format_number(const lumvane_signpost_number *number, char *out) {
  switch (number->kind) {
    case LUMVANE_SIGNPOST_NUMBER_INT64: {
      int64_t v = number->value.i;
      /* Negate in unsigned arithmetic: -INT64_MIN does not fit int64_t. */
      return v < 0 ? format_unsigned(UINT64_C(0) - (uint64_t)v, 1, out)
                   : format_unsigned((uint64_t)v, 0, out);
    }
    case LUMVANE_SIGNPOST_NUMBER_UINT64:
      return format_unsigned(number->value.u, 0, out);
    case LUMVANE_SIGNPOST_NUMBER_DOUBLE:
      return format_double(number->value.d, out);
    default:
      return -EINVAL;
  }
}
