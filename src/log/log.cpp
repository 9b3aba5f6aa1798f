// The logger: time-stamped one-line records in one file that is kept below a size cap.
#include "log/log.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

std::int32_t cpectl_log_enable = 1;
std::int32_t cpectl_runtimedebug_level = 1;
std::uint32_t cpectl_log_size = 102400;
std::int32_t cpectl_log_stdout = 0;
const char* cpectl_logfile_path = nullptr;

namespace {

constexpr char kDefaultPath[] = "/tmp/cpectl.log";
constexpr std::size_t kRecordSize = 256;

std::FILE* cpectl_logfile = nullptr;

// Creates or empties the log. The default path lies in a folder that everybody may write to, so
// there a symbolic link is refused instead of followed.
std::FILE* log_file_open(const char* path) {
    if (std::strcmp(path, kDefaultPath) != 0) return std::fopen(path, "w");
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    return file < 0 ? nullptr : fdopen(file, "w");
}

// Formats one record and writes it out at once.
__attribute__((format(printf, 1, 0))) void record_write(const char* format, std::va_list args) {
    char record_format[kRecordSize] = {};
    char record[kRecordSize] = {};
    char date[32] = {};

    const std::time_t now = std::time(nullptr);
    if (!ctime_r(&now, date)) return;
    date[std::strlen(date) - 1] = '\0';  // ctime ends in a newline

    std::snprintf(record_format, sizeof record_format, "%s::%s\n", date, format);
    // The caller's format is part of the record's, with its conversions still live.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(record, sizeof record, record_format, args);
#pragma GCC diagnostic pop

    std::fputs(record, cpectl_logfile);
    std::fflush(cpectl_logfile);
    if (cpectl_log_stdout != 0) std::puts(record);
}

__attribute__((format(printf, 1, 2))) void record_print(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    record_write(format, args);
    va_end(args);
}

bool level_is_written(std::int32_t level) {
    return cpectl_log_enable != 0 && level >= cpectl_runtimedebug_level;
}

// 0 when a record may be written, -1 when it has to be dropped.
int logfile_size_check() {
    const long position = std::ftell(cpectl_logfile);
    if (position == -1) {
        // Straight to the writer: the usual way would end up here again, for ever.
        if (level_is_written(kLogError)) record_print("Error with log file check");
        return -1;
    }
    if (static_cast<unsigned long>(position) < cpectl_log_size) return 0;

    // The old stream was flushed after each record; it is left to the end of the process.
    cpectl_logfile = log_file_open(cpectl_logfile_path);
    if (!cpectl_logfile) {
        cpectl_log(kLogError, "Can't open log file: %s", std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int cpectl_log_init(const char* path) {
    if (!path) {
        cpectl_log(kLogInfo, "Use default log file");
        path = kDefaultPath;
    }
    cpectl_logfile_path = path;
    cpectl_logfile = log_file_open(path);
    if (!cpectl_logfile) {
        cpectl_log(kLogError, "Can't open log file: %s", std::strerror(errno));
        return -1;
    }
    return 0;
}

void cpectl_log(std::int32_t level, const char* format, ...) {
    if (!level_is_written(level)) return;
    std::va_list args;
    va_start(args, format);
    __cpectl_log(format, args);
    va_end(args);
}

void __cpectl_log(const char* format, std::va_list args) {
    if (!format || !cpectl_logfile) return;
    if (logfile_size_check() < 0) return;
    record_write(format, args);
}
