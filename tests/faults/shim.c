/*
 * Records the file calls of one thread, and makes chosen ones fail or meet a changed disk.
 *
 * Loaded by LD_PRELOAD, it stands between a program and the C library. A thread arms it, sets
 * rules, runs what it wants to observe, and disarms it. Calls of other threads pass untouched.
 *
 * A rule picks the n-th call of a kind (0: every call) and a moment. Before the call and after it
 * the rule can change the disk, raise a signal or call back into the test; instead of the call it
 * can report a failure, or a success that never was. A failure reported after the call stands for
 * a close that has released its descriptor and failed all the same.
 */

/* The wrappers define the very names for which the fortified headers have inline bodies. */
#undef _FORTIFY_SOURCE
#define _GNU_SOURCE

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum kind {
  ANY,
  OPEN,
  OPENAT,
  CLOSE,
  DUP,
  FSTAT,
  FSTATAT,
  MKDIRAT,
  FSYNC,
  READ,
  LSEEK,
  WRITE,
  UNLINKAT,
  RENAMEAT,
  LINKAT,
  FDOPENDIR,
  READDIR,
  CLOSEDIR,
  FTRUNCATE,
  KINDS
};
enum moment { BEFORE, INSTEAD, AFTER };
enum action {
  FAIL,
  SHORTEN,
  PRETEND_MODE,
  RAISE,
  CALL_BACK,
  RENAME,
  EXCHANGE,
  SYMLINK,
  UNLINK,
  TOUCH,
  SKIP,
  FORGET_TYPE
};

struct shim_call {
  int kind;
  int fd;       /* the descriptor acted on, or the directory that a name is relative to */
  int other_fd; /* the second directory of a rename or link */
  int flags;    /* of an open, a stat or an unlink; whence of a seek; 1: a close-on-exec dup */
  unsigned mode;
  int error;
  long long size;   /* the count asked for by a read or write, the offset of a seek or a cut */
  long long result; /* as returned; for pointers 1, or 0 for a null */
  /* Of a readdir: the entry that it found. */
  char name[NAME_MAX + 1];
  char other_name[NAME_MAX + 1];
};

struct rule {
  int kind, nth, moment, action, number, fired;
  void (*callback)(void);
  char first[PATH_MAX], second[PATH_MAX];
};

enum { MAX_CALLS = 16384, MAX_RULES = 64 };

/* One thread is armed at a time, so only the flags need to be its own. */
static __thread bool armed;
static __thread bool busy; /* the calls of the shim's own actions are not part of the record */
static struct shim_call calls[MAX_CALLS];
static int call_count;
static int counts[KINDS];
static struct rule rules[MAX_RULES];
static int rule_count;
static int failed_changes;

void shim_arm(void) {
  call_count = rule_count = failed_changes = 0;
  memset(counts, 0, sizeof counts);
  armed = true;
}

void shim_disarm(void) { armed = false; }

int shim_call_count(void) { return call_count; }

int shim_call_limit(void) { return MAX_CALLS; }

const struct shim_call* shim_call_at(int index) { return &calls[index]; }

/* How often a disk change of a rule did not work: such a test has shown nothing. */
int shim_failed_changes(void) { return failed_changes; }

int shim_rule_fired(int index) { return rules[index].fired; }

int shim_rule(int kind, int nth, int moment, int action, int number, const char* first,
              const char* second, void (*callback)(void)) {
  if (rule_count == MAX_RULES) return -1;
  struct rule* rule = &rules[rule_count];
  *rule = (struct rule){.kind = kind,
                        .nth = nth,
                        .moment = moment,
                        .action = action,
                        .number = number,
                        .callback = callback};
  snprintf(rule->first, sizeof rule->first, "%s", first);
  snprintf(rule->second, sizeof rule->second, "%s", second);
  return rule_count++;
}

/* The state of one wrapped call on its way through. */
struct passage {
  struct shim_call call;
  bool watched;
  int number_of_kind, number_of_all, caller_errno;
  long long failure;   /* what this function returns when it fails */
  size_t* shortened;   /* the count that SHORTEN lowers */
  mode_t* status_mode; /* the field that PRETEND_MODE overwrites */
  unsigned char* type; /* the field that FORGET_TYPE overwrites */
};

static void change(int status) {
  if (status != 0) failed_changes++;
}

static void act(struct rule* rule, struct passage* p) {
  struct timespec times[2] = {{.tv_nsec = UTIME_OMIT}, {.tv_sec = rule->number}};
  size_t limit = (size_t)rule->number;
  switch (rule->action) {
    case FAIL:
      p->call.result = p->failure;
      p->call.error = rule->number;
      break;
    case SHORTEN:
      if (p->shortened && *p->shortened > limit) *p->shortened = limit;
      break;
    case PRETEND_MODE:
      if (p->status_mode) *p->status_mode = (mode_t)rule->number;
      break;
    case SKIP:
      p->call.result = rule->number;
      break;
    case FORGET_TYPE:
      if (p->type) *p->type = DT_UNKNOWN;
      break;
    case RAISE:
      change(raise(rule->number));
      break;
    case CALL_BACK:
      rule->callback();
      break;
    case RENAME:
      change(rename(rule->first, rule->second));
      break;
    case EXCHANGE:
      change(renameat2(AT_FDCWD, rule->first, AT_FDCWD, rule->second, RENAME_EXCHANGE));
      break;
    case SYMLINK:
      change(symlink(rule->first, rule->second));
      break;
    case UNLINK:
      change(unlink(rule->first));
      break;
    case TOUCH:
      change(utimensat(AT_FDCWD, rule->first, times, AT_SYMLINK_NOFOLLOW));
      break;
  }
}

/* Acts on all rules of a moment, in the order in which they were set. */
static bool apply(enum moment moment, struct passage* p) {
  bool applied = false;
  for (int i = 0; i < rule_count; i++) {
    struct rule* rule = &rules[i];
    if (rule->moment != (int)moment) continue;
    if (rule->kind != ANY && rule->kind != p->call.kind) continue;
    int number = rule->kind == ANY ? p->number_of_all : p->number_of_kind;
    if (rule->nth != 0 && rule->nth != number) continue;
    rule->fired++;
    act(rule, p);
    applied = true;
  }
  return applied;
}

/* True if the real call is to be made. */
static bool enter(struct passage* p) {
  p->watched = armed && !busy;
  if (!p->watched) return true;
  busy = true;
  p->caller_errno = errno;
  p->number_of_all = ++counts[ANY];
  p->number_of_kind = ++counts[p->call.kind];
  apply(BEFORE, p);
  bool real = !apply(INSTEAD, p);
  /* A readdir tells its end from a failure by errno alone. */
  errno = 0;
  return real;
}

static long long leave(struct passage* p, long long result, bool made) {
  if (!p->watched) return result;
  if (made) {
    p->call.result = result;
    p->call.error = errno;
  }
  apply(AFTER, p);
  if (p->call.result != p->failure) p->call.error = 0;
  if (call_count < MAX_CALLS) {
    calls[call_count] = p->call;
    if (p->failure == 0) calls[call_count].result = p->call.result != 0;
  }
  call_count++;
  busy = false;
  errno = p->call.error != 0 ? p->call.error : p->caller_errno;
  return p->call.result;
}

static struct passage passage(enum kind kind, int fd, const char* name) {
  struct passage p = {.call = {.kind = kind, .fd = fd, .other_fd = -1}, .failure = -1};
  if (name) snprintf(p.call.name, sizeof p.call.name, "%s", name);
  return p;
}

/* Looked up at the first call, since a sanitizer may call before our constructors would run.
 * Threads that race here store the same value. */
#define NEXT(name)               \
  static __typeof__(&name) next; \
  if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, #name)

/* `expression` is the real call; a failing pointer is a null, anything else is -1. */
#define PASS(p, type, expression)                        \
  bool made = enter(&(p));                               \
  long long result = made ? (long long)(expression) : 0; \
  return (type)leave(&(p), result, made)

/* An open relative to the working directory is one kind, whichever function makes it. */
static struct passage opening(int directory, const char* name, int flags, mode_t mode) {
  struct passage p = passage(directory == AT_FDCWD ? OPEN : OPENAT, directory, name);
  p.call.flags = flags;
  p.call.mode = mode;
  return p;
}

#define TAKE_MODE(mode, flags)                            \
  mode_t mode = 0;                                        \
  if ((flags) & (O_CREAT | (O_TMPFILE & ~O_DIRECTORY))) { \
    va_list arguments;                                    \
    va_start(arguments, flags);                           \
    mode = va_arg(arguments, mode_t);                     \
    va_end(arguments);                                    \
  }

#define WRAP_OPEN(name)                                      \
  int name(const char* path, int flags, ...) {               \
    NEXT(name);                                              \
    TAKE_MODE(mode, flags)                                   \
    struct passage p = opening(AT_FDCWD, path, flags, mode); \
    PASS(p, int, next(path, flags, mode));                   \
  }
#define WRAP_OPENAT(name)                                     \
  int name(int directory, const char* path, int flags, ...) { \
    NEXT(name);                                               \
    TAKE_MODE(mode, flags)                                    \
    struct passage p = opening(directory, path, flags, mode); \
    PASS(p, int, next(directory, path, flags, mode));         \
  }
/* The forms that fortified callers reach when they give no mode. */
#define WRAP_OPEN_2(name)                                 \
  int name(const char* path, int flags);                  \
  int name(const char* path, int flags) {                 \
    NEXT(name);                                           \
    struct passage p = opening(AT_FDCWD, path, flags, 0); \
    PASS(p, int, next(path, flags));                      \
  }
#define WRAP_OPENAT_2(name)                                \
  int name(int directory, const char* path, int flags);    \
  int name(int directory, const char* path, int flags) {   \
    NEXT(name);                                            \
    struct passage p = opening(directory, path, flags, 0); \
    PASS(p, int, next(directory, path, flags));            \
  }

WRAP_OPEN(open)
WRAP_OPEN(open64)
WRAP_OPENAT(openat)
WRAP_OPENAT(openat64)
WRAP_OPEN_2(__open_2)
WRAP_OPEN_2(__open64_2)
WRAP_OPENAT_2(__openat_2)
WRAP_OPENAT_2(__openat64_2)

int close(int fd) {
  NEXT(close);
  struct passage p = passage(CLOSE, fd, NULL);
  PASS(p, int, next(fd));
}

int dup(int fd) {
  NEXT(dup);
  struct passage p = passage(DUP, fd, NULL);
  PASS(p, int, next(fd));
}

/* Of all that this call can do only the close-on-exec duplicate is of interest. */
#define WRAP_FCNTL(name)                                                \
  int name(int fd, int command, ...) {                                  \
    NEXT(name);                                                         \
    va_list arguments;                                                  \
    va_start(arguments, command);                                       \
    void* argument = va_arg(arguments, void*);                          \
    va_end(arguments);                                                  \
    if (command != F_DUPFD_CLOEXEC) return next(fd, command, argument); \
    struct passage p = passage(DUP, fd, NULL);                          \
    p.call.flags = 1;                                                   \
    PASS(p, int, next(fd, command, argument));                          \
  }

WRAP_FCNTL(fcntl)
WRAP_FCNTL(fcntl64)

#define WRAP_FSTAT(name, type)                   \
  int name(int fd, struct type* status) {        \
    NEXT(name);                                  \
    struct passage p = passage(FSTAT, fd, NULL); \
    p.status_mode = &status->st_mode;            \
    PASS(p, int, next(fd, status));              \
  }
#define WRAP_FSTATAT(name, type)                                              \
  int name(int directory, const char* path, struct type* status, int flags) { \
    NEXT(name);                                                               \
    struct passage p = passage(FSTATAT, directory, path);                     \
    p.call.flags = flags;                                                     \
    p.status_mode = &status->st_mode;                                         \
    PASS(p, int, next(directory, path, status, flags));                       \
  }
/* What objects built against an older C library call in their place. */
#define WRAP_OLD_FSTAT(name, type)                     \
  int name(int version, int fd, struct type* status);  \
  int name(int version, int fd, struct type* status) { \
    NEXT(name);                                        \
    struct passage p = passage(FSTAT, fd, NULL);       \
    p.status_mode = &status->st_mode;                  \
    PASS(p, int, next(version, fd, status));           \
  }
#define WRAP_OLD_FSTATAT(name, type)                                                       \
  int name(int version, int directory, const char* path, struct type* status, int flags);  \
  int name(int version, int directory, const char* path, struct type* status, int flags) { \
    NEXT(name);                                                                            \
    struct passage p = passage(FSTATAT, directory, path);                                  \
    p.call.flags = flags;                                                                  \
    p.status_mode = &status->st_mode;                                                      \
    PASS(p, int, next(version, directory, path, status, flags));                           \
  }

WRAP_FSTAT(fstat, stat)
WRAP_FSTAT(fstat64, stat64)
WRAP_FSTATAT(fstatat, stat)
WRAP_FSTATAT(fstatat64, stat64)
WRAP_OLD_FSTAT(__fxstat, stat)
WRAP_OLD_FSTAT(__fxstat64, stat64)
WRAP_OLD_FSTATAT(__fxstatat, stat)
WRAP_OLD_FSTATAT(__fxstatat64, stat64)

int mkdirat(int directory, const char* path, mode_t mode) {
  NEXT(mkdirat);
  struct passage p = passage(MKDIRAT, directory, path);
  p.call.mode = mode;
  PASS(p, int, next(directory, path, mode));
}

int fsync(int fd) {
  NEXT(fsync);
  struct passage p = passage(FSYNC, fd, NULL);
  PASS(p, int, next(fd));
}

static struct passage transfer(enum kind kind, int fd, size_t* count) {
  struct passage p = passage(kind, fd, NULL);
  p.call.size = (long long)*count;
  p.shortened = count;
  return p;
}

ssize_t read(int fd, void* buffer, size_t count) {
  NEXT(read);
  struct passage p = transfer(READ, fd, &count);
  PASS(p, ssize_t, next(fd, buffer, count));
}

ssize_t __read_chk(int fd, void* buffer, size_t count, size_t room);
ssize_t __read_chk(int fd, void* buffer, size_t count, size_t room) {
  NEXT(__read_chk);
  struct passage p = transfer(READ, fd, &count);
  PASS(p, ssize_t, next(fd, buffer, count, room));
}

ssize_t write(int fd, const void* buffer, size_t count) {
  NEXT(write);
  struct passage p = transfer(WRITE, fd, &count);
  PASS(p, ssize_t, next(fd, buffer, count));
}

#define WRAP_LSEEK(name, type)                   \
  type name(int fd, type offset, int whence) {   \
    NEXT(name);                                  \
    struct passage p = passage(LSEEK, fd, NULL); \
    p.call.flags = whence;                       \
    p.call.size = (long long)offset;             \
    PASS(p, type, next(fd, offset, whence));     \
  }

WRAP_LSEEK(lseek, off_t)
WRAP_LSEEK(lseek64, off64_t)

#define WRAP_FTRUNCATE(name, type)                   \
  int name(int fd, type length) {                    \
    NEXT(name);                                      \
    struct passage p = passage(FTRUNCATE, fd, NULL); \
    p.call.size = (long long)length;                 \
    PASS(p, int, next(fd, length));                  \
  }

WRAP_FTRUNCATE(ftruncate, off_t)
WRAP_FTRUNCATE(ftruncate64, off64_t)

int unlinkat(int directory, const char* path, int flags) {
  NEXT(unlinkat);
  struct passage p = passage(UNLINKAT, directory, path);
  p.call.flags = flags;
  PASS(p, int, next(directory, path, flags));
}

static struct passage moving(enum kind kind, int from, const char* source, int to,
                             const char* destination) {
  struct passage p = passage(kind, from, source);
  p.call.other_fd = to;
  snprintf(p.call.other_name, sizeof p.call.other_name, "%s", destination);
  return p;
}

int renameat(int from, const char* source, int to, const char* destination) {
  NEXT(renameat);
  struct passage p = moving(RENAMEAT, from, source, to, destination);
  PASS(p, int, next(from, source, to, destination));
}

int linkat(int from, const char* source, int to, const char* destination, int flags) {
  NEXT(linkat);
  struct passage p = moving(LINKAT, from, source, to, destination);
  p.call.flags = flags;
  PASS(p, int, next(from, source, to, destination, flags));
}

DIR* fdopendir(int fd) {
  NEXT(fdopendir);
  struct passage p = passage(FDOPENDIR, fd, NULL);
  p.failure = 0;
  PASS(p, DIR*, next(fd));
}

/* A look at the found entry comes between the call and the rules that act after it. */
#define WRAP_READDIR(function, entry)                                 \
  struct entry* function(DIR* directory) {                            \
    NEXT(function);                                                   \
    struct passage p = passage(READDIR, dirfd(directory), NULL);      \
    p.failure = 0;                                                    \
    bool made = enter(&p);                                            \
    struct entry* found = made ? next(directory) : NULL;              \
    if (found) {                                                      \
      p.type = &found->d_type;                                        \
      snprintf(p.call.name, sizeof p.call.name, "%s", found->d_name); \
    }                                                                 \
    return (struct entry*)leave(&p, (long long)found, made);          \
  }

WRAP_READDIR(readdir, dirent)
WRAP_READDIR(readdir64, dirent64)

int closedir(DIR* directory) {
  NEXT(closedir);
  struct passage p = passage(CLOSEDIR, dirfd(directory), NULL);
  PASS(p, int, next(directory));
}
