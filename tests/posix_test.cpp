// What only POSIX systems have: paths that are bytes, used as they are when they
// are UTF-8, and file permissions that stop every user but root.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "test_util.h"

namespace database_interface::test {

using PosixTest = StoreTest;
namespace fs = std::filesystem;
const fs::perms kOwn = fs::perms::owner_read | fs::perms::owner_write;
fs::perms Mode(const std::string& path) { return fs::status(path).permissions(); }

// A FIFO is never opened to write (that would wait for a reader) and is left
// as it was; a path longer than SQLite takes leaves no file behind.
TEST_F(PosixTest, InitTakesUtf8PathsAsTheyAreAndFailsAtOnceWithItsLineOnOthers) {
  const std::string utf8 = m_dir.File("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
  ASSERT_EQ(0, InitOn(utf8));
  EXPECT_EQ("1.24.0", Raw(utf8, "SELECT version FROM db_version"));
  // A lone byte, a cut sequence, overlong forms, a surrogate, past U+10FFFF.
  for (const std::string bad : {"\xff", "a\xc3", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80",
                                "\xf4\x90\x80\x80", "\x80", ""}) {
    EXPECT_EQ(-1, InitOn(bad));
    EXPECT_EQ(Lines{"[database]Convert sqlite3 file path[" + bad + "] failed"}, Take());
  }
  const std::string fifo = m_dir.File("fifo");
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const std::string d = "/" + std::string(200, 'd'), longer = m_dir.path + d + d + d;
  ASSERT_TRUE(fs::create_directories(longer));
  for (const std::string& path : {fifo, longer + "/store.db"}) {
    EXPECT_EQ(-1, InitOn(path));
    const std::string error = path == fifo ? "disk I/O error" : "unable to open database file";
    EXPECT_EQ(Lines{"[database]Open sqlite3 file[" + path + "] failed:" + error}, Take());
  }
  EXPECT_TRUE(fs::is_fifo(fifo));
  EXPECT_FALSE(fs::exists(longer + "/store.db"));
}

// Under the usual umask the store, its journal (kept, empty, between writes),
// base's log and its directories are their user's alone; a file that was there
// keeps the mode its owner gave it, and its journal takes that mode. With
// BASE_LOG_PATH set empty the current directory is the default log directory:
// the shared store is ./qzdata and base's log ./base.log.
TEST_F(PosixTest, FilesAreTheirUsersAloneUnderTheUsualUmaskAndEmptyLogPathMeansHere) {
  const mode_t umask = ::umask(022);  // children inherit it
  SetEnv("DBI_TEST_DIR", m_dir.path.c_str());
  SetEnv("BASE_LOG_PATH", "");
  EXPECT_EQ(kChildPassed, Child("PosixChild.DISABLED_UsesTheCurrentDirectory").Wait());
  EXPECT_EQ("k", Raw(m_dir.File("qzdata"), "SELECT session_key FROM session_cache"));
  const std::string fresh = m_dir.File("fresh.db"), kept = m_dir.File("kept.db");
  std::ofstream{kept};
  const fs::perms shared = kOwn | fs::perms::group_read;
  fs::permissions(kept, shared);
  for (const std::string& path : {fresh, kept}) {
    ASSERT_EQ(0, InitOn(path));
    ASSERT_EQ(0, m_db->InsertSessionCache("k", "v", 1));
    EXPECT_EQ(0, fs::file_size(path + "-journal"));
  }
  EXPECT_EQ((std::vector{kOwn, kOwn, shared, shared, kOwn, kOwn}),
            (std::vector{Mode(fresh), Mode(fresh + "-journal"), Mode(kept), Mode(kept + "-journal"),
                         Mode(m_dir.File("qzdata")), Mode(m_dir.File("base.log"))}));
  SetEnv("BASE_LOG_PATH", nullptr);
  SetEnv("XDG_STATE_HOME", m_dir.File("state").c_str());
  EXPECT_EQ(m_dir.File("state/base/log/"), base::IBaseLogInterface::GetDefaultLogPath());
  for (const char* dir : {"state", "state/base", "state/base/log"})
    EXPECT_EQ(fs::perms::owner_all, Mode(m_dir.File(dir))) << dir;
  SetEnv("XDG_STATE_HOME", nullptr);
  ::umask(umask);
}

TEST(PosixChild, DISABLED_UsesTheCurrentDirectory) {
  ChildStarted();
  fs::current_path(std::getenv("DBI_TEST_DIR"));
  base::IBaseLogInterface::GetLogInstance(nullptr)->WriteLog(60, 0, "%s", "a line");
  const auto db = IDatabaseInterface::GetDbInstance();
  EXPECT_EQ(0, db->InsertSessionCache("k", "v", 4102444800000));
  db->Uninit();
}

// Root ignores permissions: the scenario runs in a child that gives root up.
TEST_F(PosixTest, ReadOnlyFileOpensForReadingAndAWriteFailsWithItsLine) {
  ASSERT_EQ(0, m_db->InsertSessionCache("k", "v", 100));
  m_db->Uninit();
  fs::permissions(m_path, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  fs::permissions(m_dir.path, fs::perms::others_read | fs::perms::others_exec,
                  fs::perm_options::add);
  SetEnv("DBI_TEST_DIR", m_dir.path.c_str());
  EXPECT_EQ(kChildPassed, Child("PosixChild.DISABLED_ReadsAndFailsToWrite").Wait());
  EXPECT_EQ("1", Raw(m_path, "SELECT count(*) FROM session_cache"));
}

TEST(PosixChild, DISABLED_ReadsAndFailsToWrite) {
  ChildStarted();
  // As root, becomes "nobody": file permissions then bind the process.
  ASSERT_TRUE(geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0));
  const auto log = LogCapture::Install();
  const auto db = IDatabaseInterface::CreateDatabaseInterface();
  std::string value;
  ASSERT_EQ(0, db->Init((std::string(std::getenv("DBI_TEST_DIR")) + "/test.db").c_str()));
  EXPECT_EQ(1, db->SelectSessionCache("k", 0, value));
  EXPECT_EQ("v", value);
  EXPECT_EQ(-1, db->DeleteAllSessionCache());
  EXPECT_EQ(Lines{StepLine("DeleteAllSessionCache", "attempt to write a readonly database")},
            log->Take());
  db->Uninit();
  log->Uninstall();
}

}  // namespace database_interface::test
