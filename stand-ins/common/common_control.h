/*
 * common_control.h - how tests make the common routines and the configuration reader fail, and look into them.
 *
 * libxadtm never calls any of these. All may be called from any thread.
 */
#ifndef COMMON_CONTROL_H
#define COMMON_CONTROL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the nth comn_malloc (from 1) from now on return null, or every one from the nth on; 0 stops. */
void common_fail_allocation(int32_t nth, int32_t and_all_later);
/* Calls of comn_malloc since common_fail_allocation. */
int32_t common_allocations_made(void);
/* Blocks of comn_malloc that were not given back yet. */
int64_t common_blocks_outstanding(void);

/*
 * Makes the nth intl_* call (from 1) from now on fail, or every one from the nth on; 0 stops. intl_open and intl_close
 * then return 0 (a close closes all the same), intl_nextsection a name with a non-zero status, intl_nextentry and
 * intl_nextvalue null with a non-zero status.
 */
void common_fail_reader(int32_t nth, int32_t and_all_later);
/* intl_* calls since common_fail_reader. */
int32_t common_reader_calls_made(void);
/* Readers that were opened and not closed yet. */
int32_t common_readers_open(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* COMMON_CONTROL_H */
