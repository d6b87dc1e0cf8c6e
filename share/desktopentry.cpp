// Desktop entries are small INI-like files; only the [Desktop Entry] group's
// Type, Hidden, TryExec and Exec keys matter here, so they are read by hand
// rather than through QSettings, which would treat commas and backslashes in
// an Exec line as list and escape syntax of its own.
#include "share/desktopentry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTextStream>

namespace {

constexpr char kFileCodes[] = "fFuU";
constexpr char kDroppedCodes[] = "dDnNickvm";

QStringList ApplicationFolders() {
  QStringList folders;
  QString home = qEnvironmentVariable("XDG_DATA_HOME");
  if (home.isEmpty()) home = QDir::homePath() + "/.local/share";
  folders << home;
  QString dirs = qEnvironmentVariable("XDG_DATA_DIRS");
  if (dirs.isEmpty()) dirs = "/usr/local/share:/usr/share";
  for (const QString &dir : dirs.split(':', Qt::SkipEmptyParts))
    folders << dir;
  for (QString &folder : folders)
    folder += "/applications/";
  return folders;
}

// The string-level escapes of a desktop entry value: \s \n \t \r \\.
QString Unescape(const QString &value) {
  QString out;
  for (qsizetype i = 0; i < value.size(); ++i) {
    const QChar c = value[i];
    if (c != '\\' || i + 1 == value.size()) {
      out += c;
      continue;
    }
    const QChar next = value[++i];
    if (next == 's')
      out += ' ';
    else if (next == 'n')
      out += '\n';
    else if (next == 't')
      out += '\t';
    else if (next == 'r')
      out += '\r';
    else if (next == '\\')
      out += '\\';
    else
      out += QString('\\') + next;  // left for the Exec quoting rules
  }
  return out;
}

bool IsTrue(const QString &value) {
  return value.trimmed().compare("true", Qt::CaseInsensitive) == 0;
}

QString Quoted(const QString &word) {
  if (!word.isEmpty() && !word.contains(QRegularExpression(QStringLiteral("[\\s\"'\\\\$`]"))))
    return word;
  QString out = "\"";
  for (QChar c : word) {
    if (c == '"' || c == '\\' || c == '$' || c == '`') out += '\\';
    out += c;
  }
  return out + '"';
}

}  // namespace

QStringList CDesktopCommand::ArgumentsWith(const QString &file) const {
  QStringList out = arguments;
  if (fileArgument >= 0 && fileArgument <= out.size())
    out.insert(fileArgument, file);
  else
    out.append(file);
  return out;
}

QString CDesktopCommand::ToString() const {
  QStringList words{Quoted(program)};
  for (const QString &argument : arguments)
    words << Quoted(argument);
  return words.join(' ');
}

CDesktopCommand ParseExecLine(const QString &exec) {
  QStringList words;
  int fileWord = -1;  // index into `words` where the file belongs
  QString word;
  bool inWord = false;  // something (even empty quotes) makes a word
  bool quoted = false;
  bool fileCode = false;
  auto finish = [&] {
    if (fileCode && fileWord < 0) fileWord = int(words.size()) + (inWord ? 1 : 0);
    if (inWord) words << word;
    word.clear();
    inWord = quoted = fileCode = false;
  };
  for (qsizetype i = 0; i < exec.size(); ++i) {
    const QChar c = exec[i];
    if (quoted) {
      if (c == '"') {
        quoted = false;
      } else if (c == '\\' && i + 1 < exec.size() && QString("\"`$\\").contains(exec[i + 1])) {
        word += exec[++i];
      } else {
        word += c;
      }
    } else if (c.isSpace()) {
      finish();
    } else if (c == '"') {
      quoted = inWord = true;
    } else if (c == '%' && i + 1 < exec.size()) {
      const QChar code = exec[++i];
      if (code == '%') {
        word += '%';
        inWord = true;
      } else if (QByteArray(kFileCodes).contains(char(code.toLatin1()))) {
        fileCode = true;
      } else if (!QByteArray(kDroppedCodes).contains(char(code.toLatin1()))) {
        word += c;
        word += code;
        inWord = true;
      }
    } else {
      word += c;
      inWord = true;
    }
  }
  finish();

  CDesktopCommand command;
  if (words.isEmpty()) return command;
  command.program = words.takeFirst();
  command.arguments = words;
  if (fileWord > 0) command.fileArgument = fileWord - 1;
  return command;
}

QString FindDesktopEntry(const QString &id) {
  const QString name = id.trimmed();
  if (name.isEmpty() || name.contains('/')) return QString();
  for (const QString &folder : ApplicationFolders()) {
    const QString path = folder + name;
    if (QFileInfo(path).isFile()) return path;
  }
  return QString();
}

bool ReadDesktopCommand(const QString &path, CDesktopCommand *command) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return false;
  QTextStream in(&file);
  bool inGroup = false;
  QString type, exec, tryExec;
  bool hidden = false;
  while (!in.atEnd()) {
    const QString line = in.readLine().trimmed();
    if (line.startsWith('[')) {
      inGroup = line == "[Desktop Entry]";
      continue;
    }
    if (!inGroup || line.startsWith('#')) continue;
    const qsizetype equals = line.indexOf('=');
    if (equals < 0) continue;
    const QString key = line.left(equals).trimmed();
    const QString value = Unescape(line.mid(equals + 1).trimmed());
    if (key == "Type")
      type = value;
    else if (key == "Exec")
      exec = value;
    else if (key == "TryExec")
      tryExec = value;
    else if (key == "Hidden")
      hidden = IsTrue(value);
  }
  if (type != "Application" || hidden || exec.isEmpty()) return false;
  if (!tryExec.isEmpty()) {
    const bool found = QDir::isAbsolutePath(tryExec)
                           ? QFileInfo(tryExec).isExecutable()
                           : !QStandardPaths::findExecutable(tryExec).isEmpty();
    if (!found) return false;
  }
  CDesktopCommand parsed = ParseExecLine(exec);
  if (parsed.IsEmpty()) return false;
  *command = parsed;
  return true;
}
