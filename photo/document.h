// The photo work area: the photos brought in during this run, as parallel
// arrays (unsaved flag, path, resolution) beside a store that keeps their
// pictures within a memory budget, with the entry the user last clicked, the thumbnail selection
// and whether the editor is showing. It knows no view: every change goes out as a signal, and the
// views that show what changed connect to it and repaint themselves.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <cstdint>
#include <vector>

#include "photo/dib.h"
#include "photo/photostore.h"

class CKorvelAppDoc : public QObject {
  Q_OBJECT

 public:
  explicit CKorvelAppDoc(QObject *parent = nullptr);

  // Appends an entry holding `handle`; `resolution` is the pixels per inch of
  // the file it came from, so that saving it again keeps its printed size.
  // The pixels are kept (in memory or a spill file) for as long as the entry
  // lives, since nothing says they equal any file.
  void AddImage(HGLOBAL handle, uint8_t unsaved, const QString &path,
                float resolution = kUnknownResolution);
  // Appends a saved entry for the photo file at `path`, whose pixels are read
  // from it whenever they are not in memory; `decoded`, when given, is what
  // reading it gave and serves until the memory budget needs the room.
  void AddPath(const QString &path, float resolution = kUnknownResolution,
               const CDib &decoded = CDib());
  // The entry takes `image` and `unsaved`; its path only when `path` is not
  // empty. Its resolution stays: an edit changes the pixels, not their size.
  // Marked saved (`unsaved` 0) under a path that names a file, the pixels are
  // taken to be that file's and may be read from it again; otherwise they are
  // kept like an unsaved edit.
  void ReplaceImage(int index, const CDib &image, uint8_t unsaved, const QString &path);
  // Entry accessors; with an empty work area the empty image, flag 1 and "".
  // The picture is decoded or read back when it is not in memory, so it is a
  // copy (sharing the block) that stays valid whatever the store drops later.
  CDib ImageAt(int index) const;
  int Count() const { return static_cast<int>(paths_.size()); }
  uint8_t UnsavedAt(int index) const;
  QString PathAt(int index) const;
  // Pixels per inch; kUnknownResolution when the file did not say.
  float ResolutionAt(int index) const;
  // The path without its folder (split at the last '/' or '\').
  QString FileNameAt(int index) const;
  // Where the pictures are, for inspection.
  const PhotoStore &Pixels() const { return pixels_; }
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
  // Emits currentChanged when the index changes.
  void SetCurrentIndex(int index);
  // The indices picked with Ctrl-clicks, in click order; empty when only the
  // current entry is picked.
  const std::vector<uint32_t> &Selection() const { return selection_; }
  // Emits selectionChanged when the indices differ from the ones held.
  void SetSelection(std::vector<uint32_t> indices);
  // The selection to edit in place, for callers that change it piecemeal;
  // they call NotifySelectionChanged() when done, since the document cannot
  // see such a change. SetSelection is the way for everyone else.
  std::vector<uint32_t> &Selection() { return selection_; }
  void NotifySelectionChanged() { emit selectionChanged(); }
  // 0 while the thumbnails show, 1 while the editor does. Emits
  // editModeChanged when the mode changes.
  int EditMode() const { return editMode_; }
  void SetEditMode(int mode);

 signals:
  // An entry was appended at `index` (always the last one).
  void photoAdded(int index);
  // Entry `index` took a new picture, unsaved flag or path.
  void photoReplaced(int index);
  // Entry `index` left the work area; those after it moved down by one.
  void photoRemoved(int index);
  // The Ctrl-click selection changed.
  void selectionChanged();
  // The entry the user last picked is now `index` (-1 for none).
  void currentChanged(int index);
  // The editor opened (1) or closed (0).
  void editModeChanged(int mode);

 private:
  bool Valid(int index) const { return index >= 0 && index < Count(); }
  // The flag, path and resolution of an entry the store has just taken.
  void AppendEntry(uint8_t unsaved, const QString &path, float resolution);

  // Mutable: reading a picture may decode it and drop others.
  mutable PhotoStore pixels_;
  std::vector<uint8_t> unsaved_;
  QList<QString> paths_;
  std::vector<float> resolutions_;
  std::vector<uint32_t> selection_;
  int current_ = -1;
  int editMode_ = 0;
};
