// fdsan on the host: a table fd -> owner tag, checked on every close.
//
// bionic routes close() through the owner check; so does libzel_host, by defining close() itself
// (it comes before libc in every link line of the host build). The table is a set of lazily
// allocated chunks that are never freed: close() may run until the very end of the process.

#include <android/fdsan.h>

#include <errno.h>
#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

#include <log/log.h>
#include <zel/host/Sync.h>

namespace {

constexpr size_t kChunkSize = 1024;
constexpr size_t kChunkCount = 1024;  // descriptors below 1M are tracked

struct Chunk {
    std::atomic<uint64_t> tags[kChunkSize];
};

std::atomic<Chunk*> sChunks[kChunkCount];

// -1 until first used, then an android_fdsan_error_level.
std::atomic<int> sLevel{-1};
std::atomic<uint64_t> sErrorCount{0};

std::mutex& lastErrorMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

std::string& lastError() {
    static std::string* message = new std::string();
    return *message;
}

thread_local bool tReporting = false;

std::atomic<uint64_t>* tagSlot(int fd, bool create) {
    if (fd < 0 || static_cast<size_t>(fd) >= kChunkSize * kChunkCount) {
        return nullptr;
    }
    std::atomic<Chunk*>& entry = sChunks[static_cast<size_t>(fd) / kChunkSize];
    Chunk* chunk = entry.load(std::memory_order_acquire);
    if (chunk == nullptr) {
        if (!create) {
            return nullptr;
        }
        Chunk* fresh = new Chunk();
        if (entry.compare_exchange_strong(chunk, fresh, std::memory_order_acq_rel)) {
            chunk = fresh;
        } else {
            delete fresh;
        }
    }
    return &chunk->tags[static_cast<size_t>(fd) % kChunkSize];
}

android_fdsan_error_level levelFromName(const char* name, android_fdsan_error_level fallback) {
    if (name == nullptr) {
        return fallback;
    }
    if (strcasecmp(name, "disabled") == 0 || strcmp(name, "0") == 0) {
        return ANDROID_FDSAN_ERROR_LEVEL_DISABLED;
    }
    if (strcasecmp(name, "warn_once") == 0) {
        return ANDROID_FDSAN_ERROR_LEVEL_WARN_ONCE;
    }
    if (strcasecmp(name, "warn_always") == 0 || strcasecmp(name, "warn") == 0) {
        return ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS;
    }
    if (strcasecmp(name, "fatal") == 0 || strcmp(name, "1") == 0) {
        return ANDROID_FDSAN_ERROR_LEVEL_FATAL;
    }
    return fallback;
}

int currentLevel() {
    int level = sLevel.load(std::memory_order_acquire);
    if (level < 0) {
        const int initial =
            levelFromName(getenv("ZEL_HOST_FDSAN"), ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS);
        sLevel.compare_exchange_strong(level, initial);
        level = sLevel.load(std::memory_order_acquire);
    }
    return level;
}

__attribute__((format(printf, 1, 2))) void report(const char* format, ...) {
    int level = currentLevel();
    if (level == ANDROID_FDSAN_ERROR_LEVEL_DISABLED || tReporting) {
        return;
    }
    tReporting = true;
    char message[512];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);

    sErrorCount.fetch_add(1, std::memory_order_relaxed);
    {
        std::lock_guard<std::mutex> lock(lastErrorMutex());
        lastError() = message;
    }
    __android_log_print(ANDROID_LOG_ERROR, "fdsan", "fdsan: %s", message);
    if (level == ANDROID_FDSAN_ERROR_LEVEL_WARN_ONCE) {
        sLevel.compare_exchange_strong(level, ANDROID_FDSAN_ERROR_LEVEL_DISABLED);
    } else if (level == ANDROID_FDSAN_ERROR_LEVEL_FATAL) {
        fprintf(stderr, "fdsan: %s\n", message);
        abort();
    }
    tReporting = false;
}

int rawClose(int fd) {
    return static_cast<int>(syscall(SYS_close, fd));
}

}  // namespace

extern "C" {

uint64_t android_fdsan_create_owner_tag(enum android_fdsan_owner_type type, uint64_t tag) {
    if (tag == 0) {
        return 0;
    }
    if ((static_cast<uint64_t>(type) & 0xff) != static_cast<uint64_t>(type)) {
        fprintf(stderr, "fdsan: invalid owner type %#x\n", static_cast<unsigned>(type));
        abort();
    }
    constexpr uint64_t kValueMask = (uint64_t{1} << 56) - 1;
    return (static_cast<uint64_t>(type) << 56) | (tag & kValueMask);
}

const char* android_fdsan_get_tag_type(uint64_t tag) {
    switch (tag >> 56) {
        case ANDROID_FDSAN_OWNER_TYPE_GENERIC_00:
            return tag == 0 ? "unowned" : "native object of unknown type";
        case ANDROID_FDSAN_OWNER_TYPE_GENERIC_FF:
            return "Java object of unknown type";
        case ANDROID_FDSAN_OWNER_TYPE_FILE:
            return "FILE*";
        case ANDROID_FDSAN_OWNER_TYPE_DIR:
            return "DIR*";
        case ANDROID_FDSAN_OWNER_TYPE_UNIQUE_FD:
            return "unique_fd";
        case ANDROID_FDSAN_OWNER_TYPE_SQLITE:
            return "sqlite";
        case ANDROID_FDSAN_OWNER_TYPE_FILEINPUTSTREAM:
            return "FileInputStream";
        case ANDROID_FDSAN_OWNER_TYPE_FILEOUTPUTSTREAM:
            return "FileOutputStream";
        case ANDROID_FDSAN_OWNER_TYPE_RANDOMACCESSFILE:
            return "RandomAccessFile";
        case ANDROID_FDSAN_OWNER_TYPE_PARCELFILEDESCRIPTOR:
            return "ParcelFileDescriptor";
        case ANDROID_FDSAN_OWNER_TYPE_ART_FDFILE:
            return "ART FdFile";
        case ANDROID_FDSAN_OWNER_TYPE_DATAGRAMSOCKETIMPL:
            return "DatagramSocketImpl";
        case ANDROID_FDSAN_OWNER_TYPE_SOCKETIMPL:
            return "SocketImpl";
        case ANDROID_FDSAN_OWNER_TYPE_ZIPARCHIVE:
            return "ZipArchive";
        case ANDROID_FDSAN_OWNER_TYPE_NATIVE_HANDLE:
            return "native_handle_t";
        case ANDROID_FDSAN_OWNER_TYPE_PARCEL:
            return "Parcel";
        default:
            return "unknown type";
    }
}

uint64_t android_fdsan_get_tag_value(uint64_t tag) {
    // The low 56 bits, sign-extended.
    return static_cast<uint64_t>(static_cast<int64_t>(tag << 8) >> 8);
}

uint64_t android_fdsan_get_owner_tag(int fd) {
    std::atomic<uint64_t>* slot = tagSlot(fd, false);
    return slot != nullptr ? slot->load(std::memory_order_acquire) : 0;
}

void android_fdsan_exchange_owner_tag(int fd, uint64_t expected_tag, uint64_t new_tag) {
    std::atomic<uint64_t>* slot = tagSlot(fd, true);
    if (slot == nullptr) {
        return;
    }
    uint64_t actual = expected_tag;
    if (slot->compare_exchange_strong(actual, new_tag, std::memory_order_acq_rel)) {
        return;
    }
    if (actual == 0) {
        report(
            "failed to exchange ownership of file descriptor %d: expected to be owned by "
            "%s 0x%" PRIx64 ", actually unowned",
            fd, android_fdsan_get_tag_type(expected_tag),
            android_fdsan_get_tag_value(expected_tag));
    } else if (expected_tag == 0) {
        report(
            "failed to exchange ownership of file descriptor %d: expected to be unowned, "
            "actually owned by %s 0x%" PRIx64,
            fd, android_fdsan_get_tag_type(actual), android_fdsan_get_tag_value(actual));
    } else {
        report(
            "failed to exchange ownership of file descriptor %d: expected to be owned by "
            "%s 0x%" PRIx64 ", actually owned by %s 0x%" PRIx64,
            fd, android_fdsan_get_tag_type(expected_tag), android_fdsan_get_tag_value(expected_tag),
            android_fdsan_get_tag_type(actual), android_fdsan_get_tag_value(actual));
    }
}

int android_fdsan_close_with_tag(int fd, uint64_t expected_tag) {
    std::atomic<uint64_t>* slot = tagSlot(fd, false);
    const uint64_t actual = slot != nullptr ? slot->exchange(0, std::memory_order_acq_rel) : 0;
    if (actual != expected_tag) {
        if (actual == 0) {
            report("attempted to close file descriptor %d, expected to be owned by %s 0x%" PRIx64
                   ", actually unowned",
                   fd, android_fdsan_get_tag_type(expected_tag),
                   android_fdsan_get_tag_value(expected_tag));
        } else if (expected_tag == 0) {
            report(
                "attempted to close file descriptor %d, expected to be unowned, actually "
                "owned by %s 0x%" PRIx64,
                fd, android_fdsan_get_tag_type(actual), android_fdsan_get_tag_value(actual));
        } else {
            report("attempted to close file descriptor %d, expected to be owned by %s 0x%" PRIx64
                   ", actually owned by %s 0x%" PRIx64,
                   fd, android_fdsan_get_tag_type(expected_tag),
                   android_fdsan_get_tag_value(expected_tag), android_fdsan_get_tag_type(actual),
                   android_fdsan_get_tag_value(actual));
        }
    }
    const int rc = rawClose(fd);
    if (expected_tag != 0 && rc == -1 && errno == EBADF) {
        const int savedErrno = errno;
        report("double-close of file descriptor %d detected", fd);
        errno = savedErrno;
    }
    return rc;
}

enum android_fdsan_error_level android_fdsan_get_error_level(void) {
    return static_cast<android_fdsan_error_level>(currentLevel());
}

enum android_fdsan_error_level android_fdsan_set_error_level(
    enum android_fdsan_error_level new_level) {
    currentLevel();
    return static_cast<android_fdsan_error_level>(sLevel.exchange(new_level));
}

enum android_fdsan_error_level android_fdsan_set_error_level_from_property(
    enum android_fdsan_error_level default_level) {
    return android_fdsan_set_error_level(levelFromName(getenv("ZEL_HOST_FDSAN"), default_level));
}

// Plain close() is a close by "nobody": an owned descriptor closed this way is reported, then
// closed anyway, as bionic does.
int close(int fd) {
    return android_fdsan_close_with_tag(fd, 0);
}

}  // extern "C"

namespace zel::host {

uint64_t fdsanErrorCount() {
    return sErrorCount.load(std::memory_order_relaxed);
}

std::string lastFdsanError() {
    std::lock_guard<std::mutex> lock(lastErrorMutex());
    return lastError();
}

void resetFdsanErrors() {
    sErrorCount.store(0, std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(lastErrorMutex());
    lastError().clear();
}

}  // namespace zel::host
