// The online service. The program uploads nothing itself: it writes the file
// names of the chosen photos to a list file in a known share folder and opens
// the service's pages in the user's browser, where the service picks the
// photos up.
//
// The two host names are settings:
//   online/site    the service's main web site, whose root is its home page
//                  (default www.korvel-online.example)
//   online/photos  the photo site holding the pages "/share" and "/print"
//                  (default photos.korvel-online.example)
// A value may be a bare host name or an address with its scheme; a bare name
// is reached over https, and only http and https addresses are opened. The defaults lie under the
// reserved .example domain until the service has addresses of its own.
#pragma once

#include <QString>
#include <QUrl>

class CKorvelAppDoc;

// The service's home page, the photo site's root and a page of the photo site
// ("/share", "/print").
QUrl OnlineHomePage();
QUrl PhotoSiteRoot();
QUrl PhotoSitePage(const QString &path);

// Where files.txt goes: the "share" folder of the default photo folder when
// it exists, else the temporary folder without its trailing separator.
QString ShareListFolder();

// Writes files.txt: the current photo's file name, or with photos selected
// each selected photo's in selection order, one a line, each ended by "\n".
// While privacy/stripLocation is on, a photo with a file is listed as a new
// copy beside the list without its position and serial numbers (never the
// original); a photo that cannot be copied so refuses the list.
// False, after telling the user, when there is no current photo or a name
// to list holds a line break (the list is then left as it was).
bool WriteShareList(const CKorvelAppDoc *doc);

// True for http and https addresses, the only ones the service's pages are
// opened from.
bool IsWebAddress(const QUrl &url);
// True for a web address; otherwise tells the user the address is refused.
bool CheckPage(const QUrl &url);
// Opens `url` in the user's browser when it is a web address, else refuses it
// as CheckPage does (the browser's result is not looked at: it reports its
// own failures).
void OpenPage(const QUrl &url);
