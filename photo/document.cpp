// The work area's entries and the folders photos are saved in.
#include "photo/document.h"

#include <QDir>
#include <QFileInfo>

CKorvelAppDoc::CKorvelAppDoc(QObject *parent)
    : QObject(parent), pixels_(PhotoStore::ConfiguredBudget(), TempPath()) {}

void CKorvelAppDoc::AddImage(HGLOBAL handle, uint8_t unsaved, const QString &path,
                             float resolution) {
  pixels_.AddPixels(CDib(handle));
  AppendEntry(unsaved, path, resolution);
}

void CKorvelAppDoc::AddPath(const QString &path, float resolution, const CDib &decoded) {
  pixels_.AddFile(path, decoded);
  AppendEntry(0, path, resolution);
}

void CKorvelAppDoc::AppendEntry(uint8_t unsaved, const QString &path, float resolution) {
  unsaved_.push_back(unsaved);
  paths_.append(path);
  resolutions_.push_back(resolution > 0.0f ? resolution : kUnknownResolution);
  emit photoAdded(Count() - 1);
}

void CKorvelAppDoc::ReplaceImage(int index, const CDib &image, uint8_t unsaved,
                                 const QString &path) {
  if (!Valid(index)) return;
  // Saved under a path that names a file (the save command's "entry marked
  // saved"): the file holds the user's picture from now on, and the entry
  // reads it back from there once the budget has dropped it. For JPEG that is
  // the picture as written, not the exact pixels before; that is what the
  // user chose to keep and what reopening the file shows. A flag set to 0
  // with no file behind it keeps the pixels, which are then all there is.
  if (unsaved == 0 && !path.isEmpty() && QFileInfo(path).isFile())
    pixels_.SetFile(index, path, image);
  else
    pixels_.SetPixels(index, image);
  unsaved_[static_cast<size_t>(index)] = unsaved;
  if (!path.isEmpty()) paths_[index] = path;
  emit photoReplaced(index);
}

// An index outside the work area answers as an empty work area does, so a
// stale index can never reach past the arrays.
CDib CKorvelAppDoc::ImageAt(int index) const {
  return Valid(index) ? pixels_.At(index) : CDib();
}

uint8_t CKorvelAppDoc::UnsavedAt(int index) const {
  return Valid(index) ? unsaved_[static_cast<size_t>(index)] : 1;
}

QString CKorvelAppDoc::PathAt(int index) const {
  return Valid(index) ? paths_[index] : QString();
}

float CKorvelAppDoc::ResolutionAt(int index) const {
  return Valid(index) ? resolutions_[static_cast<size_t>(index)] : kUnknownResolution;
}

QString CKorvelAppDoc::FileNameAt(int index) const {
  const QString path = PathAt(index);
  const int cut = std::max(path.lastIndexOf('/'), path.lastIndexOf('\\'));
  return path.mid(cut + 1);
}

void CKorvelAppDoc::Remove(int index) {
  if (!Valid(index)) return;
  pixels_.Remove(index);
  unsaved_.erase(unsaved_.begin() + index);
  paths_.removeAt(index);
  resolutions_.erase(resolutions_.begin() + index);
  // Both signals go out with the work area settled, so that a slot reading
  // the current index never sees one left over from before the removal.
  const bool hadCurrent = current_ != -1;
  current_ = -1;
  emit photoRemoved(index);
  if (hadCurrent) emit currentChanged(-1);
}

void CKorvelAppDoc::SetCurrentIndex(int index) {
  if (current_ == index) return;
  current_ = index;
  emit currentChanged(index);
}

void CKorvelAppDoc::SetSelection(std::vector<uint32_t> indices) {
  if (selection_ == indices) return;
  selection_ = std::move(indices);
  emit selectionChanged();
}

void CKorvelAppDoc::SetEditMode(int mode) {
  if (editMode_ == mode) return;
  editMode_ = mode;
  emit editModeChanged(mode);
}

QString CKorvelAppDoc::FolderOf(const QString &path) {
  if (!path.isEmpty() && QFileInfo::exists(path)) return path;
  QString temp = TempPath().left(255);
  temp.chop(1);
  return temp;
}

QString CKorvelAppDoc::UniquePhotoName(const QString &folder) {
  const QDir dir(folder);
  for (int number = 1;; ++number) {
    const QString name = QString("Zib%1.jpg").arg(number, 3, 10, QChar('0'));
    // QDir::exists follows links, and a dangling one would be taken as free.
    const QFileInfo file(dir, name);
    if (!file.exists() && !file.isSymLink()) return folder + '/' + name;
  }
}

QString CKorvelAppDoc::DefaultPhotoFolder() {
  const QString chosen = qEnvironmentVariable("KORVEL_PHOTO_DIR");
  if (!chosen.isEmpty()) return chosen;
  return QDir::homePath() + "/My Zibs";
}

QString CKorvelAppDoc::TempPath() {
  QString temp = QDir::tempPath();
  // TMPDIR naming a folder that is not there leaves Qt's answer empty, which
  // would put spill files and e-mail copies of photos in the root folder.
  if (temp.isEmpty()) temp = QStringLiteral("/tmp");
  if (!temp.endsWith('/')) temp += '/';
  return temp;
}
