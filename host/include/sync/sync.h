/*
 * Host version of libsync's <sync/sync.h>. A native fence on the host is a pollable descriptor
 * (an eventfd, see <zel/host/Sync.h>) that becomes readable when it signals, so waiting is a poll.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Waits up to `timeout` milliseconds (negative: forever) for the fence `fd` to signal.
 * Returns 0 once it has signalled; -1 with errno ETIME when the time ran out, or with errno EINVAL
 * for -1, a closed descriptor or a descriptor in an error state.
 */
int sync_wait(int fd, int timeout);

#ifdef __cplusplus
}
#endif
