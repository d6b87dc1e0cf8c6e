// The online service's pages and the share list.
#include "share/online.h"

#include <QFile>
#include <QFileInfo>

#include "app/document.h"
#include "app/korvelapp.h"
#include "app/prompt.h"
#include "share/launcher.h"

namespace {

constexpr char kDefaultSite[] = "www.korvel-online.example";
constexpr char kDefaultPhotos[] = "photos.korvel-online.example";

// The address a setting names, with https for a bare host name and without
// whatever path a stored address carried after its host.
QUrl HostSetting(const char *key, const char *otherwise) {
  QString value = CKorvelApp::Settings()->value(key, otherwise).toString().trimmed();
  if (value.isEmpty()) value = otherwise;
  if (!value.contains("://")) value.prepend("https://");
  QUrl url(value, QUrl::TolerantMode);
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
  url.setPath(path);
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
  QByteArray list;
  if (doc->Selection().empty()) {
    list += doc->FileNameAt(doc->CurrentIndex()).toLocal8Bit() + '\n';
  } else {
    for (uint32_t index : doc->Selection())
      list += doc->FileNameAt(int(index)).toLocal8Bit() + '\n';
  }
  // An unwritable folder is not reported: the page then simply finds the
  // list it found before, or none.
  QFile file(ShareListFolder() + "/files.txt");
  if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(list);
  return true;
}

void OpenPage(const QUrl &url) {
  CShellLauncher::Current().OpenUrl(url);
}
