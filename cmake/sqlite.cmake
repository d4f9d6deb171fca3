# The SQLite the library runs on. By default it is compiled here from an
# amalgamation (sqlite3.c, sqlite3.h) with the options below and linked into
# the library with hidden symbols, so a host carrying its own SQLite loads both
# without a clash. With DATABASE_INTERFACE_SYSTEM_SQLITE the system's shared
# SQLite is linked instead.
#
# Defines database_interface_sqlite, an INTERFACE target that every user of
# the library's SQLite links (the header directory, or the system library),
# and, for the bundled build, database_interface_sqlite_objects, whose object
# files go into the library.

option(DATABASE_INTERFACE_SYSTEM_SQLITE "Link the system SQLite instead of compiling one in" OFF)
set(DATABASE_INTERFACE_SQLITE_SOURCE_DIR "${PROJECT_SOURCE_DIR}/third_party/sqlite"
  CACHE PATH "Directory of the SQLite amalgamation (sqlite3.c, sqlite3.h) to compile in")

# RETURNING, which the inserts use, came with SQLite 3.35.
set(database_interface_sqlite_minimum 3.35.0)

add_library(database_interface_sqlite INTERFACE)

if(DATABASE_INTERFACE_SYSTEM_SQLITE)
  find_package(SQLite3 REQUIRED)
  if(SQLite3_VERSION VERSION_LESS database_interface_sqlite_minimum)
    message(FATAL_ERROR "The system SQLite is ${SQLite3_VERSION}; database_interface needs "
      "${database_interface_sqlite_minimum} or later (RETURNING). Build without "
      "DATABASE_INTERFACE_SYSTEM_SQLITE to compile a newer SQLite in.")
  endif()
  target_link_libraries(database_interface_sqlite INTERFACE SQLite::SQLite3)
  return()
endif()

set(amalgamation "${DATABASE_INTERFACE_SQLITE_SOURCE_DIR}")
if(NOT EXISTS "${amalgamation}/sqlite3.c" OR NOT EXISTS "${amalgamation}/sqlite3.h")
  message(FATAL_ERROR "No SQLite amalgamation (sqlite3.c, sqlite3.h) in ${amalgamation}. "
    "Provide one either way: run scripts/fetch_sqlite.sh in ${PROJECT_SOURCE_DIR} "
    "(builds it from Debian's source package), or pass "
    "-DDATABASE_INTERFACE_SQLITE_SOURCE_DIR=<directory> naming one, for example "
    "unpacked from sqlite-amalgamation-*.zip of sqlite.org. Or link the system SQLite "
    "with -DDATABASE_INTERFACE_SYSTEM_SQLITE=ON.")
endif()
file(STRINGS "${amalgamation}/sqlite3.h" version_line
  REGEX "^#define SQLITE_VERSION +\"[0-9.]+\"")
string(REGEX MATCH "[0-9]+\\.[0-9]+\\.[0-9]+" sqlite_version "${version_line}")
if(sqlite_version VERSION_LESS database_interface_sqlite_minimum)
  message(FATAL_ERROR "The SQLite amalgamation in ${amalgamation} is '${sqlite_version}'; "
    "database_interface needs ${database_interface_sqlite_minimum} or later (RETURNING).")
endif()
message(STATUS "SQLite ${sqlite_version} compiled in from ${amalgamation}")

enable_language(C)
add_library(database_interface_sqlite_objects OBJECT "${amalgamation}/sqlite3.c")
set_target_properties(database_interface_sqlite_objects PROPERTIES
  C_VISIBILITY_PRESET hidden
  POSITION_INDEPENDENT_CODE ON)
target_include_directories(database_interface_sqlite SYSTEM INTERFACE "${amalgamation}")
target_link_libraries(database_interface_sqlite_objects PRIVATE database_interface_sqlite)

# Compile-time options. Each one either keeps a behaviour the library
# documents and hosts had from the system build, or was measured to pay for
# itself on this library's calls; everything else is SQLite's default.
# "Measured" gives callgrind's instructions per call without -> with the
# option, inside the library's operation, on ":memory:" with the benchmark's
# fixture of 100 rows per table (bench/, README "Benchmarks").
# SQLITE_USE_ALLOCA was measured and left out: it moves no call by more than
# 0.1% (26200 -> 26187 per InsertSessionCache, 28792 -> 28805 per
# InsertStartRecode, reads unchanged); only B-tree rebalancing uses it.
target_compile_definitions(database_interface_sqlite_objects PRIVATE
  # The connection is opened serialized (SQLITE_OPEN_FULLMUTEX) and used from
  # every host thread.
  SQLITE_THREADSAFE=1
  # Deleted keys, secrets and session values are overwritten in the file, not
  # left in free pages.
  SQLITE_SECURE_DELETE
  # A path beginning "file:" is read as a URI, as the system SQLite did.
  SQLITE_USE_URI=1
  # No allocation statistics: they take a global mutex on every malloc and
  # free, and nothing reads them. Measured: 29592 -> 26200 per
  # InsertSessionCache, 32108 -> 28792 per InsertStartRecode (reads, served
  # from the lookaside below, allocate nothing: 5122 either way per
  # SelectSessionCache hit).
  SQLITE_DEFAULT_MEMSTATUS=0
  # Lookaside of 120 KB per connection, not 48: the library's 21 prepared
  # statements hold the default's thirty large slots, so each call's cursors
  # came from malloc. Measured: 5472 -> 5122 per SelectSessionCache
  # hit, 27080 -> 26200 per InsertSessionCache.
  SQLITE_DEFAULT_LOOKASIDE=1200,100
  # No progress handler is ever installed, so the virtual machine need not
  # count steps for one. Measured: 61656 -> 60125 per
  # SelectInstanceInfoWithStartRecodeId, 198798 -> 195577 per
  # SelectAllCoreRecode, 5164 -> 5122 per SelectSessionCache hit.
  SQLITE_OMIT_PROGRESS_CALLBACK
  # A double-quoted string is an identifier, never a string literal; the
  # library's SQL uses single quotes only.
  SQLITE_DQS=0
  # A host's record store loads no extensions: code that could load one is
  # not there to be misused.
  SQLITE_OMIT_LOAD_EXTENSION
  # Neither is used: every connection has its own cache, and no deprecated
  # interface is called.
  SQLITE_OMIT_SHARED_CACHE
  SQLITE_OMIT_DEPRECATED
  # Files SQLite creates are its user's alone (the library creates its store
  # 0600 itself, before SQLite opens it; this covers a "file:" URI path too).
  SQLITE_DEFAULT_FILE_PERMISSIONS=0600
  # LIKE never matches a blob, as in the system build; the library uses no
  # LIKE itself.
  SQLITE_LIKE_DOESNT_MATCH_BLOBS
)
# The platform's C library, found the way SQLite's own configure finds it
# (autoconf's up to 3.47, autosetup's from 3.48) for every build made with it,
# Debian's included: a function it detects becomes a HAVE_* definition, which
# SQLite's code then uses in place of a portable fallback. An amalgamation
# compiled without them runs on the fallbacks, which on Linux means an lseek
# before every read and write, and an fsync for every sync. Each check below
# names the function, the header that declares it and the definition (and,
# if given, the definition's value when the function is missing); the checks
# compile with _GNU_SOURCE, which sqlite3.c defines for GCC and Clang before
# its first include. Not checked: malloc_usable_size (Debian's build patches
# its check out, Debian bug #665363, and autosetup no longer looks for it);
# posix_fallocate (no configure looks for it, and SQLite uses it only to grow
# a file in chunks or for a memory map, neither of which the library asks
# for); configure's header and integer type checks (stdint.h, uint32_t, ...),
# whose fallbacks are the same types with every compiler this builds with.
include(CheckSymbolExists)
include(CMakePushCheckState)
set(database_interface_sqlite_platform "")
function(database_interface_sqlite_check symbol header definition)
  string(TOLOWER "database_interface_sqlite_has_${symbol}" found)
  check_symbol_exists(${symbol} ${header} ${found})
  if(${found})
    list(APPEND database_interface_sqlite_platform ${definition}=1)
  elseif(ARGC GREATER 3)
    list(APPEND database_interface_sqlite_platform ${definition}=${ARGV3})
  endif()
  set(database_interface_sqlite_platform ${database_interface_sqlite_platform} PARENT_SCOPE)
endfunction()
cmake_push_check_state(RESET)
if(CMAKE_C_COMPILER_ID MATCHES "GNU|Clang")
  set(CMAKE_REQUIRED_DEFINITIONS -D_GNU_SOURCE)
endif()
set(CMAKE_REQUIRED_QUIET ON)
# Every system: the C library's date and number functions.
# The 'localtime' and 'utc' modifiers convert with localtime_r() (or
# Windows' localtime_s()), not with localtime() under SQLite's global mutex,
# whose static result another thread of the host calling localtime() would
# overwrite.
database_interface_sqlite_check(localtime_r time.h HAVE_LOCALTIME_R)
database_interface_sqlite_check(localtime_s time.h HAVE_LOCALTIME_S)
# The same for gmtime(), which SQLite calls only in a build without its date
# functions: kept so that this build is the one configure would make.
database_interface_sqlite_check(gmtime_r time.h HAVE_GMTIME_R)
# NaN is tested with the C library's isnan(), not SQLite's bit test.
database_interface_sqlite_check(isnan math.h HAVE_ISNAN)
# SQLite's printf finds the end of each run of literal text with one
# strchrnul() rather than strchr() and strlen() (autoconf's configure looks
# for it, autosetup's no longer does: it only saves a pass over the text).
database_interface_sqlite_check(strchrnul string.h HAVE_STRCHRNUL)
# POSIX systems: the unix VFS (os_unix.c). Windows' VFS (os_win.c) reads,
# writes, syncs and sleeps through the Win32 API alone and uses none of these.
if(NOT WIN32)
  # Positional I/O: each page read or write is one pread()/pwrite() at its
  # offset instead of an lseek() and a read()/write(). With the 64-bit names
  # too, os_unix.c takes pread64()/pwrite64(), as Debian's build does; on
  # glibc they are the calls pread()/pwrite() become under the 64-bit
  # file offsets sqlite3.c asks for.
  database_interface_sqlite_check(pread unistd.h HAVE_PREAD)
  database_interface_sqlite_check(pwrite unistd.h HAVE_PWRITE)
  database_interface_sqlite_check(pread64 unistd.h HAVE_PREAD64)
  database_interface_sqlite_check(pwrite64 unistd.h HAVE_PWRITE64)
  # Every sync, of the database, of the journal and of their directory, is an
  # fdatasync(), which skips only metadata that reading the data back does not
  # need (times, owner), rather than an fsync(). It still makes a file's new
  # size durable: the Linux fdatasync(2) page names a change of st_size "as
  # made by ftruncate(2)" among what it must flush (POSIX's data integrity
  # completion, which fdatasync() gives, covers "all file system information
  # required to retrieve the data"), and os_unix.c, above full_fsync(), calls
  # fdatasync() always adequate for SQLite, which needs the file size and no
  # other attribute. That is what keeps a commit that ends by truncating the
  # journal (journal_mode=TRUNCATE, README "Durability") from coming back as
  # a hot journal after a power cut.
  database_interface_sqlite_check(fdatasync unistd.h HAVE_FDATASYNC)
  # SQLite's sleeps (sqlite3_sleep(), and a busy handler's, which the
  # library installs none of) last the microseconds asked for, not whole
  # seconds: usleep() up to SQLite 3.47; nanosleep() from 3.48, which calls
  # it unless told it is missing (0, and it falls back to usleep()).
  database_interface_sqlite_check(usleep unistd.h HAVE_USLEEP)
  database_interface_sqlite_check(nanosleep time.h HAVE_NANOSLEEP 0)
  # The "unix-dotfile" VFS, which the library never selects, refreshes its
  # lock file's time with utime() rather than utimes().
  database_interface_sqlite_check(utime utime.h HAVE_UTIME)
endif()
cmake_pop_check_state()
message(STATUS "SQLite platform functions: ${database_interface_sqlite_platform}")
target_compile_definitions(database_interface_sqlite_objects PRIVATE
  ${database_interface_sqlite_platform})

# SQLite's own code is not ours to warn about. Sanitizer builds keep it
# optimised: the fault sweeps run it thousands of times.
if(CMAKE_C_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(database_interface_sqlite_objects PRIVATE -w
    $<$<CONFIG:Debug>:-O2>)
endif()
if(NOT WIN32)
  find_package(Threads REQUIRED)
  target_link_libraries(database_interface_sqlite INTERFACE Threads::Threads m)
endif()
