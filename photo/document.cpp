// The work area's entries and the folders photos are saved in.
#include "photo/document.h"

#include <QDir>
#include <QFileInfo>

CKorvelAppDoc::CKorvelAppDoc(QObject *parent) : QObject(parent) {}

void CKorvelAppDoc::AddImage(HGLOBAL handle, uint8_t unsaved, const QString &path,
                             float resolution) {
  images_.emplace_back(handle);
  unsaved_.push_back(unsaved);
  paths_.append(path);
  resolutions_.push_back(resolution > 0.0f ? resolution : kUnknownResolution);
  emit photoAdded(Count() - 1);
}

void CKorvelAppDoc::ReplaceImage(int index, const CDib &image, uint8_t unsaved,
                                 const QString &path) {
  if (!Valid(index)) return;
  images_[static_cast<size_t>(index)] = image;
  unsaved_[static_cast<size_t>(index)] = unsaved;
  if (!path.isEmpty()) paths_[index] = path;
  emit photoReplaced(index);
}

// An index outside the work area answers as an empty work area does, so a
// stale index can never reach past the arrays.
const CDib &CKorvelAppDoc::ImageAt(int index) const {
  return Valid(index) ? images_[static_cast<size_t>(index)] : empty_;
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
  images_.erase(images_.begin() + index);
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
  if (!temp.endsWith('/')) temp += '/';
  return temp;
}
