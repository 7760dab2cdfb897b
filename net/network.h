// The network layer's life, and the log's mirror over it.
//
// QNStartup readies the layer and hands the log its two seams: the mirror and the shutdown that
// qexit runs. QNShutdown undoes all of it and may run any number of times.
//
// The mirror sends each report line, cut to 1400 bytes, as one datagram to a watching machine. It is
// off unless the program points it there with QNLogMirrorOpen after QNStartup and before anything
// is reported: the first line that finds the mirror unset switches it off for the rest of the
// layer's life, so that a program that never asks for it pays nothing after its first report.
#pragma once

namespace tarvik {

enum { QN_MIRROR_MAX_BYTES = 1400 }; // the longest datagram the mirror sends: one frame, no fragments

bool QNStartup();  // true if the layer is ready, also when it was already
void QNShutdown(); // closes the mirror's socket, forgets its target; the layer is no longer ready
bool QNIsReady();

// Points the log's mirror at 'host' (a dotted address or a name) and 'port'. False, with a report,
// if the layer isn't started, the mirror has been switched off, or no socket can be made.
bool QNLogMirrorOpen(const char* host, int port);

} // namespace tarvik
