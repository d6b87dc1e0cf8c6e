// The online service's pages and the share list.
#include "share/online.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <string>
#include <vector>

#include "photo/document.h"
#include "photo/photometa.h"
#include "photo/prompt.h"
#include "photo/settings.h"
#include "share/launcher.h"

namespace {

constexpr char kDefaultSite[] = "www.korvel-online.example";
constexpr char kDefaultPhotos[] = "photos.korvel-online.example";

// The address a setting names, with https for a bare host name and without
// whatever path a stored address carried after its host. An address of any
// other scheme is returned as it is, for OpenPage to refuse: the browser
// would hand file:, smb: or ftp: addresses to whatever program the desktop
// has for them.
QUrl HostSetting(const char *key, const char *otherwise) {
  QString value = KorvelSettings()->value(key, otherwise).toString().trimmed();
  if (value.isEmpty()) value = otherwise;
  // "name:" starts a scheme unless a port number follows the colon
  // ("localhost:8080").
  static const QRegularExpression schemed(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*:(?!\\d+(/|$))"));
  if (!schemed.match(value).hasMatch()) value.prepend("https://");
  QUrl url(value, QUrl::TolerantMode);
  if (!IsWebAddress(url)) return url;
  if (!url.isValid() || url.host().isEmpty()) url = QUrl(QString("https://") + otherwise);
  url.setPath("/");
  url.setQuery(QString());
  url.setFragment(QString());
  return url;
}

// Creates a new, empty file in `folder` for a copy of the photo `name`
// ("name-shared.jpg", then "-shared-2" and on), so that the copy is never
// written over a file already there; empty when none could be created.
QString CreateCopyFile(const QString &folder, const QString &name) {
  const QFileInfo info(name);
  const QString suffix = info.suffix().isEmpty() ? QString() : "." + info.suffix();
  for (int n = 1; n < 1000; ++n) {
    const QString path = QStringLiteral("%1/%2-shared%3%4")
                             .arg(folder, info.completeBaseName(),
                                  n == 1 ? QString() : QStringLiteral("-%1").arg(n), suffix);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) return path;
    // Only a name already taken is worth another try.
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink()) break;
  }
  return {};
}

// The name files.txt gives the photo at `index`: its own file's, or, when
// photos leave without their position and serial numbers and it has a file,
// a copy's made beside the list. Empty, with the copy gone, when the copy
// could not be made: the original is then never offered instead.
QString ListedName(const CKorvelAppDoc *doc, int index, const QString &folder, QStringList *made) {
  const QString name = doc->FileNameAt(index);
  const QString original = doc->PathAt(index);
  if (!StripPrivateOnShare() || !QFileInfo(original).isFile()) return name;
  const QString copy = CreateCopyFile(folder, name);
  std::string why = "no new file could be created in " + QFile::encodeName(folder).toStdString();
  if (!copy.isEmpty() &&
      MetaPrivateCopy(QFile::encodeName(original), QFile::encodeName(copy), &why)) {
    *made << copy;
    return QFileInfo(copy).fileName();
  }
  if (!copy.isEmpty()) QFile::remove(copy);
  qWarning("%s: no copy to share: %s", qPrintable(original), why.c_str());
  return {};
}

}  // namespace

QUrl OnlineHomePage() {
  return HostSetting("online/site", kDefaultSite);
}

QUrl PhotoSiteRoot() {
  return HostSetting("online/photos", kDefaultPhotos);
}

QUrl PhotoSitePage(const QString &path) {
  QUrl url = PhotoSiteRoot();
  if (IsWebAddress(url)) url.setPath(path);
  return url;
}

QString ShareListFolder() {
  return CKorvelAppDoc::FolderOf(CKorvelAppDoc::DefaultPhotoFolder() + "/share");
}

bool WriteShareList(const CKorvelAppDoc *doc) {
  if (doc->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image or images that you would like to order online");
    return false;
  }
  std::vector<int> listed;
  if (doc->Selection().empty()) listed.push_back(doc->CurrentIndex());
  for (uint32_t index : doc->Selection())
    listed.push_back(int(index));
  for (int index : listed) {
    const QString name = doc->FileNameAt(index);
    // A line break would split the name into lines naming photos that were
    // never chosen; the whole list is refused, so that the service never
    // gets a selection other than the user's.
    if (name.contains('\n') || name.contains('\r')) {
      AfxMessageBox(QStringLiteral("The photo \"%1\" cannot be listed for Korvel Online because "
                                   "its name contains a line break. Save it under another name, "
                                   "or leave it out, and try again.")
                        .arg(QString(name).replace(QRegularExpression("\r\n|\r|\n"), " ")));
      return false;
    }
  }
  const QString folder = ShareListFolder();
  QByteArray list;
  QStringList made;
  for (int index : listed) {
    const QString name = ListedName(doc, index, folder, &made);
    if (name.isEmpty()) {
      for (const QString &copy : std::as_const(made))
        QFile::remove(copy);
      AfxMessageBox(QStringLiteral("The photo \"%1\" could not be copied without its location and "
                                   "camera serial number, so nothing was listed for Korvel Online.")
                        .arg(doc->FileNameAt(index)));
      return false;
    }
    list += name.toLocal8Bit() + '\n';
  }
  // An unwritable folder is not reported: the page then simply finds the
  // list it found before, or none.
  QFile file(folder + "/files.txt");
  if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(list);
  return true;
}

bool IsWebAddress(const QUrl &url) {
  const QString scheme = url.scheme().toLower();
  return scheme == QLatin1String("http") || scheme == QLatin1String("https");
}

bool CheckPage(const QUrl &url) {
  if (IsWebAddress(url)) return true;
  AfxMessageBox(QStringLiteral("The address \"%1\" is not a web page, so it was not opened. "
                               "Korvel Online's addresses (the settings online/site and "
                               "online/photos) must start with http:// or https://.")
                    .arg(url.toDisplayString(QUrl::RemovePassword)));
  return false;
}

void OpenPage(const QUrl &url) {
  if (CheckPage(url)) CShellLauncher::Current().OpenUrl(url);
}
