/* Decimal text of number arguments, independent of the caller's locale. */
#ifndef LUMVANE_SIGNPOST_NUMBER_H
#define LUMVANE_SIGNPOST_NUMBER_H

#include <stddef.h>

#include "lumvane/signpost.h"

/* Room for any number this writes, with its terminating NUL. */
#define SIGNPOST_NUMBER_TEXT_MAX 40

/* Writes `number`'s value into `out` (SIGNPOST_NUMBER_TEXT_MAX bytes) and
 * returns its length, or a negative errno: integers in plain decimal,
 * doubles in the fewest of 15, 16 or 17 significant digits that read back as
 * the same double, always with a '.' or an exponent so that readers do not
 * take them for integers. */
int signpost_format_number(const lumvane_signpost_number *number, char *out);

#endif
