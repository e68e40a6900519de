// SPDX-License-Identifier: MIT
#ifndef RECORDINGS_H
#define RECORDINGS_H

#include "toolsupport.h"

// What the tests of "vornfh record" share: scripts that stand in for ffmpeg, and what a recording contains.

/// The start of a script for ffmpeg: the path to write is the last argument, after "file:".
inline const QByteArray FIND_TARGET = "for target; do :; done\ntarget=${target#file:}\n";
inline const QByteArray WRITE_DATA = FIND_TARGET + "echo data > \"$target\"\n";

/// The end of a script that does not end by itself. The tool signals the whole process group, so "sleep" ends
/// too.
inline const QByteArray WAIT_FOR_SIGNAL = "trap 'exit 255' INT\nwhile :; do sleep 0.05; done\n";

/// The start of a script that stands in for ffmpeg only when it is called with the argument @p argument, by
/// default when it records into a file. Otherwise it runs the real one, $real. Call this before there is a
/// stand-in.
QByteArray onlyToRecord(const QByteArray &argument = "-fs");

/// Where the first recordings on a card are.
inline const QByteArray FOLDER = "@/sd/DCIM/100ABC/";

/// A small picture and a tone, as fast as ffmpeg can make them.
inline const QByteArrayList SMALL = {"--input-format", "lavfi", "--input",
                                     "testsrc2=size=160x120:rate=25[out0];sine=sample_rate=8000[out1]"};

/// The argument that only an ffmpeg that writes a segment has.
inline const QByteArray WRITES_SEGMENT = "-copyinkf";

/// "@/sd/DCIM/100ABC/DCF_0001.avi" and so on, each with a line feed.
QByteArray paths(int first, int last, const QByteArray &extension);

/// A line "PATH: recording ended early: REASON".
QByteArray endedEarly(const QByteArray &name, const QByteArray &reason);

/// Writes a file of @p bytes bytes to the card.
void fill(const ToolRun &tool, const QByteArray &name, int bytes);

/// What ffprobe prints about @p entries of a file.
QByteArray probe(const QString &file, const QString &entries, const QStringList &options = {});

/// The number of packets in a recording.
int packetsIn(const QString &file);

/// The checksums of the packets of the stream @p stream, "v" or "a", in their order.
QByteArrayList packetsOf(const QString &file, const QString &stream);

/// Returns what is wrong with a recording that any player should show to its end; empty if nothing is.
QByteArray whyNotPlayable(const QString &file);

/// The ID of the process that wrote it to @p file.
pid_t processIn(const ToolRun &tool, const QString &file);

#endif // RECORDINGS_H
