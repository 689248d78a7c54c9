#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/platform.h"
#include "platform/posix/path.h"
#include "platform/posix/time_zone.h"
#include "platform/text_convert.h"

namespace tovik {

struct Lock {
  pthread_mutex_t mutex;
};

namespace {

int start() {
  time_zone_start();
  return 0;
}

void end() {}

Lock *create_lock() {
  Lock *lock = mem_new<Lock>();
  if (lock == nullptr) return nullptr;
  pthread_mutexattr_t attributes;
  bool made = pthread_mutexattr_init(&attributes) == 0;
  if (made) {
    made = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
           pthread_mutex_init(&lock->mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
  }
  if (made) return lock;
  mem_delete(lock);
  return nullptr;
}

int destroy_lock(Lock *lock) {
  pthread_mutex_destroy(&lock->mutex);
  mem_delete(lock);
  return 0;
}

int enter_lock(Lock *lock) {
  return pthread_mutex_lock(&lock->mutex) == 0 ? 0 : -1;
}

int leave_lock(Lock *lock) {
  return pthread_mutex_unlock(&lock->mutex) == 0 ? 0 : -1;
}

// The kernel's process and thread ids, asked for at every call and page access and therefore kept. A child
// process has its forking thread's copies under new ids, so the copies are forgotten there.
std::atomic<int> kept_process_id{0};
__attribute__((tls_model("initial-exec"))) thread_local ThreadId kept_thread_id = 0;

void forget_ids() {
  kept_process_id.store(0, std::memory_order_relaxed);
  kept_thread_id = 0;
}

pthread_once_t fork_watch = PTHREAD_ONCE_INIT;

void watch_forks() {
  pthread_atfork(nullptr, nullptr, forget_ids);
}

__attribute__((noinline)) int ask_process_id() {
  pthread_once(&fork_watch, watch_forks);
  const int id = static_cast<int>(getpid());
  kept_process_id.store(id, std::memory_order_relaxed);
  return id;
}

int process_id() {
  const int kept = kept_process_id.load(std::memory_order_relaxed);
  return kept != 0 ? kept : ask_process_id();
}

__attribute__((noinline)) ThreadId ask_thread_id() {
  pthread_once(&fork_watch, watch_forks);
  kept_thread_id = static_cast<ThreadId>(syscall(SYS_gettid));
  return kept_thread_id;
}

ThreadId thread_id() {
  return kept_thread_id != 0 ? kept_thread_id : ask_thread_id();
}

int threads_equal(ThreadId a, ThreadId b) {
  return a == b ? 1 : 0;
}

void sleep_for(int milliseconds) {
  if (milliseconds < 0) return;
  timespec rest = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  const int before = errno;
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
  errno = before;
}

void utc_now(Clock *now) {
  if (now == nullptr) return;
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  now->seconds = static_cast<int32_t>(time.tv_sec);
  now->microseconds = static_cast<int32_t>(time.tv_nsec / 1000);
}

void local_now(DateTimeRec *now) {
  if (now == nullptr) return;
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  time_zone_seconds_to_local(now, time.tv_sec);
  now->microseconds = static_cast<int32_t>(time.tv_nsec / 1000);
}

int print(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int count = vprintf(format, arguments);
  va_end(arguments);
  return count;
}

int debug_print(const char *format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  const int count = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (count >= 0) fputs(text, stdout);
  return count;
}

FILE *open_stream(const char *name, const char *mode) {
  const SystemPath path(name);
  return path.text() == nullptr ? nullptr : fopen(path.text(), mode);
}

int close_stream(FILE *stream) {
  return fclose(stream);
}

size_t read_stream(void *buffer, size_t size, size_t count, FILE *stream) {
  return fread(buffer, size, count, stream);
}

size_t write_stream(const void *buffer, size_t size, size_t count, FILE *stream) {
  return fwrite(buffer, size, count, stream);
}

char *gets_stream(char *buffer, int size, FILE *stream) {
  return fgets(buffer, size, stream);
}

int32_t seek_stream(FILE *stream, int32_t offset, int origin) {
  const int whence = origin == 1 ? SEEK_CUR : origin == 2 ? SEEK_END : SEEK_SET;
  if (fseek(stream, offset, whence) != 0) return -1;
  const long position = ftell(stream);
  return position > INT32_MAX ? -1 : static_cast<int32_t>(position);
}

const char *environment_get(const char *name) {
  return getenv(name);
}

}  // namespace

SystemDriver system_driver = {
    "posix system driver",
    start,
    end,
    create_lock,
    destroy_lock,
    enter_lock,
    leave_lock,
    process_id,
    thread_id,
    threads_equal,
    sleep_for,
    local_now,
    utc_now,
    print,
    debug_print,
    open_stream,
    close_stream,
    read_stream,
    write_stream,
    gets_stream,
    seek_stream,
    nullptr,  // cipher_driver
    nullptr,  // report_driver_error: the I/O layer fills it
    environment_get,
    time_zone_local_to_utc,
    time_zone_utc_to_local,
    time_zone_local_to_seconds,
    time_zone_seconds_to_local,
    text_convert,
};

}  // namespace tovik
