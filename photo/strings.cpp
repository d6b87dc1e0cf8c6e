// The string table. Most entries are fixed sentences; the two invitations to
// the online service are built on every call so that they name whatever site
// the settings hold at the time.
#include "photo/strings.h"

#include "photo/settings.h"

namespace {

constexpr char kDefaultSite[] = "www.korvel-online.example";

struct FixedString {
  int id;
  const char *text;
};

constexpr FixedString kStrings[] = {
    {1000, "Welcome to the Korvel Application"},
    {1001, "Open photos from your Korvel or from a file on your computer."},
    {1002, "Save the changes you've made to a file on your computer."},
    {1003, "Take your photo to Klaiplen's Grubod to make more changes."},
    {1004, "Send your photo to a printer."},
    {1005, "Return to the thumbnails of photos you've opened."},
    {1006, "Remove the selected thumbnail from your work area."},
    {1007,
     "Use the mouse to select the part of the photo that you would like to crop. Then click the "
     "crop button on the right."},
    {1008, "Use a set of tools to correct the colors in your photo."},
    {1009, "Turn your photo 90 degrees right or left."},
    {1010, "Click on the part of the photo where you want to remove red eye."},
    {1011, "Click on the part of the photo where you want the sky color corrected."},
    {1012,
     "Click on the part of the photo where you want the colors of grass and leaves corrected."},
    {1013, "Click on the part of the photo where you want the skin tones corrected."},
    {1014, "Click on the part of the photo where you want the neutral tones corrected."},
    {1015, "Rotate your photo 90 degrees to the left."},
    {1016, "Rotate your photo 90 degrees to the right."},
    {1019, "Zoom into the image."},
    {1020, "Zoom out of the image"},
    {1021, "Please select an action that you would like to apply to this image."},
    {1022, "Please select an image that you would like to send to Adobe PhotoDeluxe."},
    {1023, "Unable to send the image to Adobe PhotoDeluxe. Please try again."},
    {1024,
     "Unable to find Adobe PhotoDeluxe. Please check to see if it is installed on your machine."},
    {128, kDocString},
};

// The site as a reader would type it: a stored address may carry its scheme
// and a closing slash, which the sentences leave out.
QString OnlineSite() {
  QString site = KorvelSettings()->value("online/site", kDefaultSite).toString().trimmed();
  for (QLatin1String scheme : {QLatin1String("http://"), QLatin1String("https://")})
    if (site.startsWith(scheme, Qt::CaseInsensitive)) site.remove(0, scheme.size());
  while (site.endsWith('/'))
    site.chop(1);
  return site.isEmpty() ? QString(kDefaultSite) : site;
}

}  // namespace

QString LoadKorvelString(int id) {
  switch (id) {
    case 1017:
      return QString("Visit Korvel Online at %1.").arg(OnlineSite());
    case 1018:
      return QString("Share your photos with family and friends on Korvel Online at %1.")
          .arg(OnlineSite());
    default:
      break;
  }
  for (const FixedString &entry : kStrings)
    if (entry.id == id) return QString::fromUtf8(entry.text);
  return QString();
}
