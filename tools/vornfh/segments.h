// SPDX-License-Identifier: MIT
#ifndef SEGMENTS_H
#define SEGMENTS_H

#include "errors.h"
#include "recorder.h"

/// Makes a recording in segments: files with successive numbers, without a gap in the recording. Each gets
/// its thumbnail and is printed when it is on the device, while the next one is being recorded. Throws
/// Failure.
ExitCode recordSegments(const RecorderSettings &settings);

#endif // SEGMENTS_H
