// database_interface: a host SDK's own small store of records in one SQLite
// file. The host never writes SQL; it calls the twenty operations below.
//
// Objects. `IDatabaseInterface::GetDbInstance()` returns the process-wide
// object, opened on first use on the file "qzdata" in the host's default log
// directory. `IDatabaseInterface::CreateDatabaseInterface()` returns a new,
// closed object that the host opens with `Init(path)`. Objects live only in
// the std::shared_ptr that a factory returns: the interface has no virtual
// destructor, so never delete one through a raw pointer.
//
// Threading. Any thread may call any data operation at any time; each
// operation runs its one prepared statement under that statement's own lock,
// so different operations run in parallel and two calls of one operation run
// one after the other. `Init` and `Uninit` turn a concurrent second caller
// away (-1, or nothing done) instead of waiting. A call that overlaps `Uninit`
// (or a following `Init`) on the same object is safe: it completes before its
// statement is finalized, or returns -1 without a log line, or, when an `Init`
// has opened the object again by the time it reaches its statement, runs on
// that statement, so on the newly opened file. `Uninit` waits only for calls
// already running their statement. Keep a reference to the object for the
// whole of every call: the last reference must not go while a call is in
// progress.
//
// Results. Every operation but `Uninit` returns -1 on any failure: an object
// that is not open, a null text where one is required, a failed SQLite call.
// Otherwise 0, or 1/0 for "a row"/"no row", or a count of records appended.
// Outputs are written only when a row is read; vectors are appended to, never
// cleared. An `int` after a text pointer is that text's byte length, passed to
// SQLite unchanged (negative: up to the NUL; it must not exceed the bytes
// behind the pointer). Texts are read only during the call. Texts read back
// are cut at their first NUL byte. A write reports success only after SQLite
// has committed it: an insert that hands back an id has committed that row.
//
// Logging. Each failed data operation writes exactly one line, beginning
// "[database]", through base::IBaseLogInterface::GetLogInstance() at level
// 60; a failed `Init` writes a short chain, innermost first; a call
// refused because the object is not open, or because a required text is
// null, writes nothing. Bound values (keys, secrets, record texts) never
// appear in a line; the path given to `Init` does. Nothing is logged on
// success. Two lines report no failed SQLite call but this library's own
// refusals. A read whose text column yields no text (a NULL, possible only in
// a table of another shape that the file already held, or SQLite out of
// memory while converting) fails with "[database]database_interface::
// CDatabase::<operation> sqlite3_column_text with sql[<SQL>] failed:datatype
// mismatch" (or "failed:out of memory"). A record text, session key or
// session value longer than INT_MAX bytes is refused before SQLite sees it,
// with the bind line of its parameter ending "failed:string or blob too big".
//
// Durability. A write that returned success survives the process's crash
// and, on POSIX file systems and NTFS, the machine's crash or a power cut:
// each commit ends by truncating the journal and syncing that before the call
// returns. A write that fails with an I/O error at its commit's last sync
// returns -1 and may yet be in the file.
//
// Files. A store file that `Init` creates, and its journal ("<path>-journal",
// which stays between writes, empty), are readable and writable by their user
// alone: mode 0600 on POSIX whatever the umask; on Windows a new file takes the
// access list of its directory (under %LOCALAPPDATA%, its user's). A file that
// exists keeps the mode its owner gave it. A file planted by someone else is
// opened with SQLite's defences on: its triggers and views are never run, its
// schema cannot switch the defences off, no temporary file is written, and
// the file is never memory-mapped. A file that is not a database fails `Init`
// at its first read (the step that creates missing tables) and is left as it
// was; a FIFO or other file that is not a regular one fails at once, at the
// open, and is left alone. A failed open leaves no new file behind.
//
// Processes. Several processes may use one store. There is no busy wait: a
// call that meets another process's lock returns -1 at once with its line
// ending "failed:database is locked", and may be tried again. A process killed
// mid-write leaves its journal; the next process to read rolls it back. An
// `Init` that meets a lock fails at its first read (the step that creates
// missing tables), with that statement's line and "[database]CreateTable
// failed".
//
// Exceptions. The library throws nothing of its own. What the standard
// library raises passes through: std::bad_alloc, std::system_error from a
// mutex, and from `Init` std::invalid_argument / std::out_of_range when the
// file's stored schema version has a part that is not a number. When an
// exception leaves `Init`, the object has first been closed again, so a later
// `Init` on a good file succeeds; one leaving a data operation has reset its
// statement and released its lock.
#ifndef DATABASE_INTERFACE_DATABASE_INTERFACE_H_
#define DATABASE_INTERFACE_DATABASE_INTERFACE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "database_interface/export.h"

namespace database_interface {

/// One crash dump record: the dump and log file paths of a dump, the start
/// record it belongs to, and its creation time in the caller's unit.
struct DATABASE_INTERFACE_EXPORT CoreRecode {
  CoreRecode() = default;
  CoreRecode(int id_, std::string dump_file_path_, std::string log_file_path_, int start_recode_id_,
             int64_t create_time_)
      : id(id_),
        dump_file_path(std::move(dump_file_path_)),
        log_file_path(std::move(log_file_path_)),
        start_recode_id(start_recode_id_),
        create_time(create_time_) {}

  int id = 0;
  std::string dump_file_path;
  std::string log_file_path;
  int start_recode_id = 0;
  int64_t create_time = 0;
};

/// One instance the host runs under a start record.
struct DATABASE_INTERFACE_EXPORT InstanceInfo {
  InstanceInfo() = default;
  InstanceInfo(int id_, std::string instance_no_, std::string session_id_, int business_type_,
               std::string protocol_type_, int start_recode_id_, int64_t create_time_)
      : id(id_),
        instance_no(std::move(instance_no_)),
        session_id(std::move(session_id_)),
        business_type(business_type_),
        protocol_type(std::move(protocol_type_)),
        start_recode_id(start_recode_id_),
        create_time(create_time_) {}

  int id = 0;
  std::string instance_no;
  std::string session_id;
  int business_type = 0;
  std::string protocol_type;
  int start_recode_id = 0;
  int64_t create_time = 0;
};

// The order of the operations below is the order of the virtual table: it is
// ABI. Never reorder, insert or rename.
class DATABASE_INTERFACE_EXPORT IDatabaseInterface {
 public:
  // ---- Lifecycle ----------------------------------------------------------

  /// Opens (creating if missing) the SQLite file at `path`, creates missing
  /// tables and brings the file to schema version "1.24.0". Returns 0 when
  /// the object is ready. Returns -1 without a log line when `path` is null
  /// or the object is not closed (already open, or another `Init`/`Uninit`
  /// is running); -1 with log lines on any other failure, leaving the object
  /// closed and reusable. A file with a newer schema version loses its start,
  /// crash dump, instance and session records (message keys survive). A
  /// stored version that is not three numbers fails every `Init` until the
  /// file is repaired; see Exceptions for a part that is not a number. A file
  /// the process may only read opens read-only: reads work, writes fail.
  /// ":memory:" opens a store in memory, gone at `Uninit`; no file is made.
  virtual int Init(const char* path) = 0;

  /// Closes the object; it may be opened again with `Init`. Does nothing on an
  /// object that is not open. Calls running meanwhile finish first, return -1,
  /// or, if an `Init` follows at once, run on the file it opens. Destroying an
  /// object does not close its connection (its file stays open until the
  /// process ends): call `Uninit` first.
  virtual void Uninit() = 0;

  // ---- Message collection key ----------------------------------------------

  /// Reads the first stored key pair. 1: both outputs set; 0: none stored,
  /// outputs untouched; -1: failure, outputs untouched.
  virtual int SelectMessageCollectKey(std::string& message_access_key,
                                      std::string& message_access_secret_key) = 0;

  /// Adds one key pair (every call adds a row; nothing is replaced). 0 or -1;
  /// a null pointer returns -1 without a log line.
  virtual int InsertMessageCollectKey(const char* message_access_key, int message_access_key_len,
                                      const char* message_access_secret_key,
                                      int message_access_secret_key_len) = 0;

  // ---- Start records -------------------------------------------------------

  /// Stores one start of the SDK. 1: stored and `id` set to the new id (ids
  /// are never reused); 0: nothing came back, `id` untouched; -1: failure. A
  /// null text returns -1 without a log line.
  virtual int InsertStartRecode(int& id, const char* sdk_version, int sdk_version_len,
                                const char* sdk_type, int sdk_type_len, int64_t start_time) = 0;

  /// Reads the start record `id`. 1: the three outputs set; 0: no such
  /// record, outputs untouched; -1: failure, outputs untouched.
  virtual int SelectStartRecode(int id, std::string& sdk_version, std::string& sdk_type,
                                int64_t& start_time) = 0;

  /// Deletes start record `id` with its crash dump and instance records. 0
  /// also when there is no such record; -1 on failure.
  virtual int DeleteStartRecode(int id) = 0;

  /// Deletes every start record with all crash dump and instance records. 0
  /// or -1.
  virtual int DeleteAllStartRecode() = 0;

  // ---- Crash dump records --------------------------------------------------

  /// Stores `record` (its `id` is ignored) under an existing start record.
  /// 1: stored and `record.id` set; 0: nothing came back; -1: failure, also
  /// when `start_recode_id` names no start record. Only `id` is written.
  virtual int InsertCoreRecode(CoreRecode& record) = 0;

  /// Appends every crash dump record to `records`, in no particular order.
  /// Returns the number appended, or -1; on -1 the records appended before
  /// the failure stay.
  virtual int SelectAllCoreRecode(std::vector<CoreRecode>& records) = 0;

  /// Deletes crash dump record `id`. 0 also when there is none; -1 on failure.
  virtual int DeleteCoreRecode(int id) = 0;

  // ---- Instance records ----------------------------------------------------

  /// Stores `record` (its `id` is ignored) under an existing start record.
  /// 1: stored and `record.id` set; 0: nothing came back; -1: failure, also
  /// when `start_recode_id` names no start record. Only `id` is written.
  virtual int InsertInstanceInfo(InstanceInfo& record) = 0;

  /// Appends the instance records of start record `start_recode_id` to
  /// `records`, in no particular order. Returns the number appended, or -1;
  /// on -1 the records appended before the failure stay.
  virtual int SelectInstanceInfoWithStartRecodeId(int start_recode_id,
                                                  std::vector<InstanceInfo>& records) = 0;

  /// Sets the session id of instance record `id`. 0 also when there is no
  /// such record; -1 on failure. A null `session_id` returns -1 without a
  /// log line.
  virtual int UpdataInstanceSessionId(int id, const char* session_id, int session_id_len) = 0;

  /// Deletes instance record `id`. 0 also when there is none; -1 on failure.
  virtual int DeleteInstanceInfo(int id) = 0;

  // ---- Session cache -------------------------------------------------------
  // Keys and values are NUL-terminated texts; an empty text is valid. A null
  // key or value returns -1 without a log line. Expiry times are compared as
  // integers in the caller's unit; the shared object's purge when it first
  // opens uses milliseconds since 1970-01-01 UTC, so use that unit with it.

  /// Deletes every entry whose expiry time is strictly less than
  /// `expire_time`. 0 also when none had expired; -1 on failure.
  virtual int DeleteSessionCache(int64_t expire_time) = 0;

  /// Deletes the entry under `session_key`. 0 also when there is none; -1 on
  /// failure.
  virtual int DeleteSessionCacheWithKey(const char* session_key) = 0;

  /// Stores `session_value` under `session_key`, replacing any entry under
  /// the key (expired or not). 0 or -1.
  virtual int InsertSessionCache(const char* session_key, const char* session_value,
                                 int64_t expire_time) = 0;

  /// Reads the entry under `session_key` whose expiry time is strictly
  /// greater than `expire_time`. 1: found, `session_value` set; 0: none (or
  /// expired; an expired entry is not deleted), `session_value` untouched;
  /// -1: failure.
  virtual int SelectSessionCache(const char* session_key, int64_t expire_time,
                                 std::string& session_value) = 0;

  /// Deletes every entry. 0 or -1.
  virtual int DeleteAllSessionCache() = 0;

  // ---- Factories -----------------------------------------------------------

  /// A new object, closed: call `Init` with a path of your choice.
  static std::shared_ptr<IDatabaseInterface> CreateDatabaseInterface();

  /// The process-wide object. The first call opens it on the default log
  /// directory followed directly by "qzdata" and, when that succeeds, deletes
  /// session entries that expired before now (milliseconds since 1970);
  /// concurrent first callers wait for this. A first open that fails with -1
  /// is not retried: the object stays closed (every operation returns -1)
  /// unless the host calls `Init` on it. One that throws (see Exceptions)
  /// passes the exception on and counts as not done: the next call opens the
  /// file again, and throws again until the file is repaired.
  static std::shared_ptr<IDatabaseInterface> GetDbInstance();
};

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_DATABASE_INTERFACE_H_
