// The host product's debug log.
//
// One file that several processes append to. Every record is a single write(2) on an append
// descriptor, without a lock, a stream or (for texts of ordinary length) the heap, so that records
// of different processes do not mix and a signal handler may log. errno is left as it was.
//
// A record:  2026-01-31T04:05:06.789Z 4711 4 cvanomalymgmt: Successfully started the service
// (UTC to the millisecond, process id, level, tag, text). The process id of a daemon (see
// pluma_set_corvane_daemon) is followed by a "d". Line ends inside the text ("\n", "\r\n", and "\r"
// alone) are kept and each continuation line is indented by a tab, so that a logged text cannot
// look like a record. A text longer than 1 MiB is cut, with the mark " [cut]".
#pragma once

namespace corvane {

// The levels of a record.
inline constexpr int kLogDetail = 2;   // progress, and details for troubleshooting
inline constexpr int kLogEvent = 4;    // something notable, but in order
inline constexpr int kLogWarning = 8;  // something is wrong; work goes on without it
inline constexpr int kLogError = 16;   // something failed

}  // namespace corvane

// Opens `directory`/`name` for appending, and creates it with `mode` if it is missing; the
// directory is not created. `program` is the name of the program that logs. Returns the descriptor
// (always above 2, close-on-exec), or a negative value if the file cannot be opened; then *status
// is negative too, otherwise it is unchanged. A second call replaces the first log, with the same
// descriptor; if it fails, the first log stays.
int open_debug_log(const char* directory, const char* program, const char* name, int mode,
                   int* status);

// Writes one record. Without an open log nothing happens. A failed write is not reported.
void logmsgf(int level, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void logmsg(int level, const char* tag, const char* text);
