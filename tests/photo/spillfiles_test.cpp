// Spill files left by sessions that ended are swept away; those of a session
// that still holds its lock, whatever its process id says, and files that are
// not spill files stay.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "photo/spillfiles.h"

namespace {

// The id of a process that has just ended, so no process has it now.
pid_t EndedProcess() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  int status = 0;
  ::waitpid(child, &status, 0);
  return child;
}

void Touch(const QString &path) {
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
  file.write("pixels");
}

QStringList Names(const QString &folder) {
  QStringList names =
      QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
  names.sort();
  return names;
}

TEST(SpillFiles, EndedSessionsGoAndLockedOnesStay) {
  QTemporaryDir dir;
  const QString f = dir.path() + '/';
  const QString ended = QString::number(EndedProcess());
  const QString unlocked = QString::number(EndedProcess());
  // An ended session with its lock file, one whose lock file is gone.
  Touch(f + "korvel-pixels-" + ended + "-a1b2c3");
  Touch(f + "korvel-pixels-" + ended + "-d4e5f6");
  Touch(f + ".korvel-pixels-" + ended + ".lock");
  Touch(f + "korvel-pixels-" + unlocked + "-g7h8i9");
  // A session that runs, seen from here under an id no process has here (as
  // from another process namespace sharing the folder): its lock is held.
  Touch(f + "korvel-pixels-999999999-j1k2l3");
  const QByteArray heldName = QFile::encodeName(f + ".korvel-pixels-999999999.lock");
  int held = ::open(heldName.constData(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(held, 0);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  // Not spill files: an unnumbered one of before, other shapes, a folder.
  Touch(f + "korvel-pixels-Xy12Zw");
  Touch(f + "korvel-pixels-" + ended + "-toolong");
  Touch(f + "korvel-pixels-" + ended + ".lock");
  ASSERT_TRUE(QDir().mkdir(f + "korvel-pixels-" + ended + "-m4n5o6"));

  EXPECT_EQ(RemoveOrphanSpills(dir.path()), 3);
  QStringList kept = {".korvel-pixels-999999999.lock",
                      "korvel-pixels-999999999-j1k2l3",
                      "korvel-pixels-Xy12Zw",
                      "korvel-pixels-" + ended + "-toolong",
                      "korvel-pixels-" + ended + ".lock",
                      "korvel-pixels-" + ended + "-m4n5o6"};
  kept.sort();
  EXPECT_EQ(Names(dir.path()), kept);

  // Once that session ends, its files go too.
  ::close(held);
  EXPECT_EQ(RemoveOrphanSpills(dir.path()), 1);
  EXPECT_FALSE(QFile::exists(f + "korvel-pixels-999999999-j1k2l3"));
  EXPECT_FALSE(QFile::exists(QFile::decodeName(heldName)));
  EXPECT_EQ(RemoveOrphanSpills(dir.path() + "/missing"), 0);
}

TEST(SpillFiles, OwnFilesSurviveSweepsAndACrashedSessionsDoNot) {
  QTemporaryDir dir;
  QString path;
  const int fd = MakeSpillFile(dir.path(), &path);
  ASSERT_GE(fd, 0);
  ::close(fd);
  const QString pid = QString::number(::getpid());
  EXPECT_TRUE(path.startsWith(dir.path() + "/korvel-pixels-" + pid + "-")) << path.toStdString();
  struct stat info {};
  ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_TRUE(QFile::exists(dir.path() + "/.korvel-pixels-" + pid + ".lock"));
  EXPECT_EQ(RemoveOrphanSpills(dir.path()), 0);
  EXPECT_TRUE(QFile::exists(path));

  // A session that spills and dies without a word, as a crash leaves it.
  QTemporaryDir other;
  const pid_t child = ::fork();
  if (child == 0) {
    QString made;
    ::_exit(MakeSpillFile(other.path(), &made) >= 0 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(Names(other.path()).size(), 2);  // the spill file and the lock
  EXPECT_EQ(RemoveOrphanSpills(other.path()), 1);
  EXPECT_TRUE(Names(other.path()).isEmpty());
  EXPECT_EQ(MakeSpillFile(QString(), &path), -1);
}

}  // namespace
