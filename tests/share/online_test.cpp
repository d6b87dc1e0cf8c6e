// The online service: the share list's folder and contents, and the pages
// each button opens.
#include <QSettings>

#include "share/online.h"
#include "tests/share/sharetest.h"

namespace {

class Online : public ShareTest {
 protected:
  QString ShareFolder() const { return photos.path() + "/share"; }
  // The temporary folder as the list's fallback sees it.
  QString TempList() const { return temp.path() + "/files.txt"; }
};

TEST_F(Online, ShareListFolderAndContents) {
  const QString message = "Please select an image or images that you would like to order online";
  // No current photo: the message, and no list anywhere.
  EXPECT_FALSE(WriteShareList(doc));
  EXPECT_EQ(prompt.messages, QStringList{message});
  EXPECT_FALSE(QFile::exists(TempList()));

  Add("/photos/one.jpg");
  Add("C:\\My Zibs\\Zib002.jpg");
  Add("/elsewhere/three.jpeg");
  doc->SetCurrentIndex(1);

  // Without the share folder the list goes to the temporary folder; with
  // nothing selected it names the current photo.
  EXPECT_TRUE(WriteShareList(doc));
  EXPECT_EQ(Read(TempList()), "Zib002.jpg\n");

  // Three selected: three lines in selection order, the file made anew.
  doc->Selection() = {2, 0, 1};
  EXPECT_TRUE(WriteShareList(doc));
  EXPECT_EQ(Read(TempList()), "three.jpeg\none.jpg\nZib002.jpg\n");

  // With the share folder under the photo folder the list goes there, and a
  // shorter list truncates what was there before.
  ASSERT_TRUE(QDir().mkpath(ShareFolder()));
  doc->Selection() = {2, 0, 1};
  EXPECT_TRUE(WriteShareList(doc));
  EXPECT_EQ(Read(ShareFolder() + "/files.txt"), "three.jpeg\none.jpg\nZib002.jpg\n");
  doc->Selection() = {0};
  EXPECT_TRUE(WriteShareList(doc));
  EXPECT_EQ(Read(ShareFolder() + "/files.txt"), "one.jpg\n");
  doc->Selection().clear();
  doc->SetCurrentIndex(2);
  EXPECT_TRUE(WriteShareList(doc));
  EXPECT_EQ(Read(ShareFolder() + "/files.txt"), "three.jpeg\n");
  // The temporary folder's list was left as it was.
  EXPECT_EQ(Read(TempList()), "three.jpeg\none.jpg\nZib002.jpg\n");
  EXPECT_EQ(prompt.messages.size(), 1);
}

TEST_F(Online, PagesOpenedByTheButtons) {
  const QString message = "Please select an image or images that you would like to order online";
  // Go to Korvel Online: help 1017 and the home page, photo or none.
  form->OnCommand(1020);
  EXPECT_EQ(Help(), "Visit Korvel Online at www.korvel-online.example.");
  EXPECT_EQ(launcher.urls, QStringList{"https://www.korvel-online.example/"});

  // Share Photos without a photo: the dialog, then the message, no page.
  dialogs.share.push_back({CShareDialogs::IDOK, "SHARE"});
  form->OnCommand(1037);
  EXPECT_TRUE(Help().startsWith("Share your photos"));
  EXPECT_EQ(dialogs.asked, QStringList{"Share"});
  EXPECT_EQ(prompt.messages, QStringList{message});
  EXPECT_EQ(launcher.urls.size(), 1);

  Add("/photos/a.jpg");
  doc->SetCurrentIndex(0);
  // Share cancelled: no list, no page.
  dialogs.share.push_back({CShareDialogs::IDCANCEL, "SHARE"});
  form->OnCommand(1037);
  EXPECT_FALSE(QFile::exists(TempList()));
  EXPECT_EQ(launcher.urls.size(), 1);
  // Share: the list, then the share page of the photo site.
  dialogs.share.push_back({CShareDialogs::IDOK, "SHARE"});
  form->OnCommand(1037);
  EXPECT_EQ(Read(TempList()), "a.jpg\n");
  EXPECT_EQ(launcher.urls.last(), "https://photos.korvel-online.example/share");

  // Order Photos Online from the print chooser: the list and the print page,
  // without the print help.
  const QString help = Help();
  QFile::remove(TempList());
  dialogs.print.push_back({CShareDialogs::IDOK, CShareDialogs::kOrderPhotosOnline});
  form->OnCommand(1032);
  EXPECT_EQ(Read(TempList()), "a.jpg\n");
  EXPECT_EQ(launcher.urls.last(), "https://photos.korvel-online.example/print");
  EXPECT_EQ(Help(), help);
  // The print chooser closed: nothing at all.
  form->OnCommand(1032);
  EXPECT_EQ(launcher.urls.size(), 3);

  // Projects, "Online": the photo site's root, no list written.
  QFile::remove(TempList());
  dialogs.projects.push_back({CShareDialogs::IDOK, "Online"});
  form->OnCommand(1023);
  EXPECT_EQ(Help(), "Take your photo to Klaiplen's Grubod to make more changes.");
  EXPECT_EQ(launcher.urls.last(), "https://photos.korvel-online.example/");
  EXPECT_FALSE(QFile::exists(TempList()));
  // Projects cancelled: nothing opened or started.
  dialogs.projects.push_back({CShareDialogs::IDCANCEL, "Online"});
  form->OnCommand(1023);
  EXPECT_EQ(launcher.urls.size(), 4);
  EXPECT_TRUE(launcher.programs.isEmpty());
  EXPECT_EQ(prompt.messages.size(), 1);
}

TEST_F(Online, HostNamesFromTheSettings) {
  {
    const auto settings = CKorvelApp::Settings();
    settings->setValue("online/site", "http://shop.korvel.example/some/path");
    settings->setValue("online/photos", "pictures.korvel.example");
  }
  EXPECT_EQ(OnlineHomePage().toString(), "http://shop.korvel.example/");
  EXPECT_EQ(PhotoSiteRoot().toString(), "https://pictures.korvel.example/");
  EXPECT_EQ(PhotoSitePage("/share").toString(), "https://pictures.korvel.example/share");
  form->OnCommand(1020);
  EXPECT_EQ(launcher.urls, QStringList{"http://shop.korvel.example/"});
  {
    // An empty or unusable setting falls back to the default.
    const auto settings = CKorvelApp::Settings();
    settings->setValue("online/site", "");
    settings->setValue("online/photos", "https://");
  }
  EXPECT_EQ(OnlineHomePage().toString(), "https://www.korvel-online.example/");
  EXPECT_EQ(PhotoSitePage("/print").toString(), "https://photos.korvel-online.example/print");
  const auto settings = CKorvelApp::Settings();
  settings->remove("online");
}

}  // namespace
