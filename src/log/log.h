// The logger: time-stamped one-line records in one file that is kept below a size cap.
//
// Nothing in the program opens the log, so every call below returns without writing; it is there
// for firmware builds and tests that call cpectl_log_init() first.
#pragma once

#include <cstdarg>
#include <cstdint>

enum LogLevel : std::int32_t {
    kLogInfo = 1,   // progress
    kLogError = 3,  // failures
};

extern std::int32_t cpectl_log_enable;          // 0 switches all records off; 1 at start
extern std::int32_t cpectl_runtimedebug_level;  // lowest level that is written; 1 at start
extern std::uint32_t cpectl_log_size;           // bytes at which the file is emptied; 102400
extern std::int32_t cpectl_log_stdout;          // not 0: records go to standard output as well
extern const char* cpectl_logfile_path;         // set by cpectl_log_init, which keeps the pointer

// Opens the log at `path`, or at /tmp/cpectl.log for null, and empties it. The text of `path` has
// to live as long as the log does. Returns 0, or -1 when the file cannot be opened.
int cpectl_log_init(const char* path);

// Writes one record, printf-style, when logging is on, the level is high enough and the log is
// open. A record is cut at 255 characters, its time included; one that cannot be written is lost.
__attribute__((format(printf, 2, 3))) void cpectl_log(std::int32_t level, const char* format, ...);

// The writer behind cpectl_log: no level, no switch. A null format writes nothing.
__attribute__((format(printf, 1, 0))) void __cpectl_log(const char* format, std::va_list args);
