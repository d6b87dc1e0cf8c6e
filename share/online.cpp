// The online service's pages and the share list.
#include "share/online.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <vector>

#include "app/document.h"
#include "app/korvelapp.h"
#include "app/prompt.h"
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
  QString value = CKorvelApp::Settings()->value(key, otherwise).toString().trimmed();
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
  QByteArray list;
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
    list += name.toLocal8Bit() + '\n';
  }
  // An unwritable folder is not reported: the page then simply finds the
  // list it found before, or none.
  QFile file(ShareListFolder() + "/files.txt");
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
