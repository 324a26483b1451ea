/*
 * common_routines.h - the common routines and the configuration-file reader that the library calls.
 *
 * They are not part of the library: whatever the application loaded provides them. Memory that the library allocates
 * comes from comn_malloc and goes back through comn_free, nothing else.
 */
#ifndef COMMON_ROUTINES_H
#define COMMON_ROUTINES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A block of size bytes, not cleared, or null when memory is short. */
void *comn_malloc(size_t size);
/* Gives a block of comn_malloc back; null is allowed. */
void comn_free(void *block);

/* The environment variable's value, or null when it is not set. The caller does not free it. */
const char *com_getenv(const char *name);

/* 0 when the texts are equal, byte by byte; else below or above 0, as the first different byte is. */
int32_t com_unsignstrcmp(const char *left, const char *right);
/* The same without regard to the case of letters. */
int32_t com_unsignstricmp(const char *left, const char *right);
/* The same for the first count bytes at most. */
int32_t com_unsignstrncmp(const char *left, const char *right, int32_t count);

/*
 * State of one open configuration file. The caller provides the storage; its content is the reader's.
 * A file is a sequence of sections, a section a sequence of entries, an entry a name and zero or more values.
 */
typedef struct intl_reader {
  void *reader_state;
  void *reader_reserved[7];
} INTL_READER;

/* Opens the file for reading: 1 when it is open, anything else is failure (nothing to close then). */
int32_t intl_open(const char *path, INTL_READER *reader);
/* The next section's name, null when there are no more. A non-zero *status with a returned name is a read error. */
char *intl_nextsection(INTL_READER *reader, int32_t *status);
/* The next entry's name in the current section, null at the section's end; *status as above. */
char *intl_nextentry(INTL_READER *reader, int32_t *status);
/*
 * The next value of the current entry, null when it has no more. The text is writable and stays valid until the next
 * call on the same reader.
 */
char *intl_nextvalue(INTL_READER *reader, int32_t *status);
/* Closes the file: 1, anything else is failure. The storage is the caller's again. */
int32_t intl_close(INTL_READER *reader);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* COMMON_ROUTINES_H */
