// SPDX-License-Identifier: Apache-2.0
// Unnamed files for what must be kept for a while: they vanish with the process.
#ifndef KREL_HOST_AUDIO_SCRATCH_FILE_H
#define KREL_HOST_AUDIO_SCRATCH_FILE_H

#include <stdint.h>

namespace krel::host {

/// A descriptor of a new, empty file in $TMPDIR, else /tmp, for reading and writing; the caller
/// closes it. Throws Error.
int open_scratch_file();

/// False, with errno, when not everything could be written.
bool write_all(int fd, const void* data, int64_t bytes);

/// The whole of the file `from`, from its start. False, with errno, when that failed.
bool copy_all(int from, int to);

}  // namespace krel::host

#endif
