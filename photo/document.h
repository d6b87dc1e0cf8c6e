// The photo work area: the photos brought in during this run, as parallel
// arrays (picture, unsaved flag, path, resolution), with the entry the user last
// clicked, the thumbnail selection and whether the editor is showing. Every
// view of the main window is attached to it and finds the others through it.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <cstdint>
#include <vector>

#include "photo/dib.h"

class QWidget;

class CKorvelAppDoc : public QObject {
  Q_OBJECT

 public:
  explicit CKorvelAppDoc(QObject *parent = nullptr);

  // Appends an entry holding `handle`; `resolution` is the pixels per inch of
  // the file it came from, so that saving it again keeps its printed size.
  void AddImage(HGLOBAL handle, uint8_t unsaved, const QString &path,
                float resolution = kUnknownResolution);
  // The entry takes `image` and `unsaved`; its path only when `path` is not
  // empty. Its resolution stays: an edit changes the pixels, not their size.
  void ReplaceImage(int index, const CDib &image, uint8_t unsaved, const QString &path);
  // Entry accessors; with an empty work area the empty image, flag 1 and "".
  const CDib &ImageAt(int index) const;
  int Count() const { return static_cast<int>(images_.size()); }
  uint8_t UnsavedAt(int index) const;
  QString PathAt(int index) const;
  // Pixels per inch; kUnknownResolution when the file did not say.
  float ResolutionAt(int index) const;
  // The path without its folder (split at the last '/' or '\').
  QString FileNameAt(int index) const;
  // Removes the entry (the file stays) and forgets the current index.
  void Remove(int index);

  // `path` when it exists, else the temporary folder without its trailing
  // separator.
  static QString FolderOf(const QString &path);
  // The first "Zib" + number (at least three digits) + ".jpg" in `folder` that
  // nothing has, a symbolic link included, whether or not it leads anywhere.
  static QString UniquePhotoName(const QString &folder);
  // Where camera photos go: $KORVEL_PHOTO_DIR, else "My Zibs" in the home folder.
  static QString DefaultPhotoFolder();
  // The temporary folder with a trailing separator (honours TMPDIR).
  static QString TempPath();

  int CurrentIndex() const { return current_; }
  void SetCurrentIndex(int index) { current_ = index; }
  std::vector<uint32_t> &Selection() { return selection_; }
  const std::vector<uint32_t> &Selection() const { return selection_; }
  int EditMode() const { return editMode_; }
  void SetEditMode(int mode) { editMode_ = mode; }

  // The views attached to the work area, in the order they were added; a view
  // finds another as the first of the wanted class.
  void AddView(QWidget *view);
  void RemoveView(QWidget *view);
  template <class View>
  View *FindView() const {
    for (QWidget *w : views_)
      if (auto *v = qobject_cast<View *>(w)) return v;
    return nullptr;
  }

 private:
  bool Valid(int index) const { return index >= 0 && index < Count(); }

  std::vector<CDib> images_;
  std::vector<uint8_t> unsaved_;
  QList<QString> paths_;
  std::vector<float> resolutions_;
  std::vector<uint32_t> selection_;
  CDib empty_;
  int current_ = -1;
  int editMode_ = 0;
  QList<QWidget *> views_;
};
