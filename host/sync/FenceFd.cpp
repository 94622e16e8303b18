// Host native fences: eventfds whose counter holds the time of the signal.

#include <zel/host/Sync.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

namespace zel::host {
namespace {

int64_t monotonicNs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// A field of an eventfd's fdinfo ("eventfd-count:", "eventfd-id:"), read without consuming the
// counter; false when `fd` is not an eventfd or the kernel does not report the field.
bool readField(int fd, const char* field, uint64_t* outValue) {
    if (fd < 0) {
        return false;
    }
    char path[64];
    snprintf(path, sizeof(path), "/proc/self/fdinfo/%d", fd);
    FILE* file = fopen(path, "re");
    if (file == nullptr) {
        return false;
    }
    const size_t length = strlen(field);
    bool found = false;
    char line[256];
    while (fgets(line, sizeof(line), file) != nullptr) {
        if (strncmp(line, field, length) == 0) {
            // The counter is printed in hexadecimal, the id in decimal.
            *outValue =
                strtoull(line + length, nullptr, strcmp(field, "eventfd-id:") == 0 ? 10 : 16);
            found = true;
            break;
        }
    }
    fclose(file);
    return found;
}

bool readCounter(int fd, uint64_t* outCount) {
    return readField(fd, "eventfd-count:", outCount);
}

std::mutex& signalMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

}  // namespace

int createFenceFd(bool signaled) {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd >= 0 && signaled) {
        signalFenceFd(fd);
    }
    return fd;
}

int signalFenceFd(int fd) {
    std::lock_guard<std::mutex> lock(signalMutex());
    uint64_t count = 0;
    if (!readCounter(fd, &count)) {
        return -EINVAL;
    }
    if (count != 0) {
        return 0;
    }
    const int64_t now = monotonicNs();
    const uint64_t value = now > 0 ? static_cast<uint64_t>(now) : 1;
    if (write(fd, &value, sizeof(value)) != static_cast<ssize_t>(sizeof(value))) {
        return -errno;
    }
    return 0;
}

int64_t fenceSignalTime(int fd) {
    uint64_t count = 0;
    if (!readCounter(fd, &count)) {
        return -1;
    }
    return count == 0 ? INT64_MAX : static_cast<int64_t>(count);
}

int64_t fenceIdentity(int fd) {
    uint64_t id = 0;
    if (readField(fd, "eventfd-id:", &id)) {
        return static_cast<int64_t>(id);
    }
    // Kernels before 5.2 name no id: the signal time is the best identity left.
    return fenceSignalTime(fd);
}

}  // namespace zel::host
