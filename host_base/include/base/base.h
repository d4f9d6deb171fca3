// Stand-in for the host SDK's base library: the process logger, the calling
// thread's id, the host's default log directory and UTF-8 path conversion.
#ifndef BASE_BASE_H_
#define BASE_BASE_H_

#include <cstdarg>
#include <memory>
#include <string>

#if defined(_WIN32)
#if defined(BASE_BUILDING)
#define BASE_EXPORT __declspec(dllexport)
#else
#define BASE_EXPORT __declspec(dllimport)
#endif
#else
#define BASE_EXPORT __attribute__((visibility("default")))
#endif

#if defined(__GNUC__) || defined(__clang__)
#define BASE_PRINTF_FORMAT(format_index, first_arg) \
  __attribute__((format(printf, format_index, first_arg)))
#else
#define BASE_PRINTF_FORMAT(format_index, first_arg)
#endif

namespace base {

/// The calling thread's id: the kernel thread id on Linux, the Win32 thread
/// id (GetCurrentThreadId) on Windows.
BASE_EXPORT int GetTid();

/// A process logger. Every operation but `WriteLog` has a default, so a host
/// (or a test) may subclass it and override `WriteLog` alone. Implementations
/// must be callable from any thread at once and must not call back into the
/// code that logs.
class BASE_EXPORT IBaseLogInterface {
 public:
  IBaseLogInterface() = default;
  IBaseLogInterface(const IBaseLogInterface&) = delete;
  IBaseLogInterface& operator=(const IBaseLogInterface&) = delete;
  virtual ~IBaseLogInterface();

  /// Lines below `level` are dropped. Default: not supported, returns -1.
  virtual int SetLevel(const int& level);
  /// The current threshold. Default: 0, every line passes.
  virtual int GetLevel() const;
  /// True when a line at `level` would be written. Default: level >= GetLevel().
  virtual bool IsLevelEnabled(const int& level) const;
  /// Sends later lines to the file at `path` (UTF-8 on Windows). Default: not
  /// supported, -1.
  virtual int SetLogFile(const std::string& path);
  /// The file lines go to (UTF-8 on Windows); empty when there is none.
  /// Default: empty.
  virtual std::string GetLogFile() const;
  /// Pushes buffered lines to their destination. Default: nothing, 0.
  virtual int Flush();
  /// Writes one finished message. Default: WriteLog(level, tid, "%s", message).
  virtual int WriteMessage(const int& level, const int& tid, const char* message);
  /// va_list form of WriteLog. Default: formats, then WriteMessage.
  virtual int VWriteLog(const int& level, const int& tid, const char* format, va_list args);
  /// Releases the destination; later lines may reopen it. Default: nothing, 0.
  virtual int Close();
  /// Writes one line, printf-style. Returns 0 when written, -1 otherwise.
  virtual int WriteLog(const int& level, const int& tid, const char* format, ...)
      BASE_PRINTF_FORMAT(4, 5) = 0;

  /// With a non-empty `logger`, makes it the process logger. Returns the
  /// process logger, creating the default file logger on first use: it
  /// appends to base.log in the default log directory, and writes to standard
  /// error instead while that file cannot be opened (its directory missing or
  /// not writable). Thread-safe.
  static std::shared_ptr<IBaseLogInterface> GetLogInstance(
      std::shared_ptr<IBaseLogInterface> logger);

  /// The host's log directory, ending in a separator.
  /// On Linux: the environment variable BASE_LOG_PATH, when set, is returned
  /// exactly as it is (even empty, even without a trailing separator).
  /// Otherwise $XDG_STATE_HOME/base/log/ or $HOME/.local/state/base/log/;
  /// each missing directory of it is created with mode 0700.
  /// On Windows the result is in the ANSI code page, like every `char*` path
  /// there. BASE_LOG_PATH, when set, is returned exactly as it is (even
  /// without a trailing separator); the C runtime removes a variable set to
  /// the empty string, so an empty setting does not exist and means unset.
  /// Otherwise %LOCALAPPDATA%\base\log\, created if missing, with
  /// backslashes only; the empty string (the current directory) when that
  /// directory has no name in the ANSI code page.
  static std::string GetDefaultLogPath();
};

class BASE_EXPORT CPathUtil {
 public:
  /// `path` in UTF-8; the empty string (failure) when it is null or empty.
  /// On Linux paths are bytes: `path` unchanged when it is valid UTF-8, and
  /// failure when it is not. On Windows `path` is in the ANSI code page and
  /// is converted through UTF-16; failure when it holds bytes that the code
  /// page does not define.
  static std::string ToUtf8Path(const char* path);
};

}  // namespace base

#endif  // BASE_BASE_H_
