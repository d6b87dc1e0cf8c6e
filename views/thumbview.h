// The thumbnail view: every photo of the work area as a small picture with its
// file name under it, five to a row, and the clicks that pick the photo the
// edit commands act on.
#pragma once

#include <QAbstractScrollArea>
#include <QHash>
#include <QList>
#include <QPixmap>
#include <QPointer>
#include <QRect>
#include <QSet>
#include <QString>
#include <functional>
#include <vector>

#include "photo/cellpicture.h"
#include "photo/thumbnailer.h"

class CKorvelAppDoc;
class QAction;
class QMenu;

class CThumbView : public QAbstractScrollArea {
  Q_OBJECT

 public:
  // Layout in pixels: entry i has column i % 5 and row i / 5.
  static constexpr int kColumns = 5;
  static constexpr int kPitch = 120;
  static constexpr int kMargin = 20;
  static constexpr int kCellSize = kGridCell;
  static constexpr int kCaptionTop = 2;  // below the cell's bottom
  static constexpr int kCaptionBottom = 20;
  static constexpr int kScrollWidth = 645;
  static constexpr int kMinScrollHeight = 453;
  static constexpr QRgb kBackground = 0xffdcdcdc;  // RGB(220, 220, 220)
  static constexpr QRgb kSelectedFrame = 0xffff0000;
  // The frame that holds a photo's place until its thumbnail is made, inset
  // from the cell's edge.
  static constexpr QRgb kPlaceholder = 0xffa0a0a0;
  static constexpr int kPlaceholderInset = 10;
  static constexpr int kCaptionPoints = 8;
  // The scroll bar's line: three make a row.
  static constexpr int kWheelLine = kPitch / 3;

  // Shows the context menu at a global position and returns the item chosen,
  // or null. The view runs its menu through this so that the choice can be
  // made without a real popup.
  using MenuRunner = std::function<QAction *(QMenu *, const QPoint &)>;

  // The view shows `doc` and repaints itself whenever the work area or its
  // selection changes; `doc` must outlive it.
  explicit CThumbView(CKorvelAppDoc *doc, QWidget *parent = nullptr);
  ~CThumbView() override;

  // Scroll sizes for an empty work area, and the client rectangle that a
  // short work area's background fills from then on.
  void OnInitialUpdate();

  // The cells of the last paint, one per entry in work-area order.
  const QList<QRect> &CellRects() const { return cells_; }

  // Menu 132: a new menu, owned by the caller, whose items carry their
  // command ids as data.
  QMenu *CreateContextMenu() const;
  void SetMenuRunner(MenuRunner runner) { menuRunner_ = std::move(runner); }

  // Where the thumbnails of photos that equal their files come from, so that
  // a caller can wait for them or see what is still asked for.
  Thumbnailer &Thumbnails() { return thumbnailer_; }

 signals:
  // A double-click opened a photo for editing: the form checks the selection
  // and shows the editor.
  void editPhotoRequested();
  // The Delete key: the form asks whether to remove the current photo.
  void removePhotoRequested();
  // An item of the context menu, by its command id (a MenuId).
  void commandRequested(int id);

 protected:
  void paintEvent(QPaintEvent *event) override;
  void mousePressEvent(QMouseEvent *event) override;
  void mouseDoubleClickEvent(QMouseEvent *event) override;
  void keyPressEvent(QKeyEvent *event) override;
  void resizeEvent(QResizeEvent *event) override;

 private:
  void OnLButtonDown(QMouseEvent *event);
  void OnRButtonDown(QMouseEvent *event);
  // The first cell of the last paint holding `point` (content coordinates
  // for the left button), or -1.
  int HitTest(const QPoint &point) const;
  // Per entry, whether its cell gets the red frame.
  std::vector<bool> FramedEntries(int count) const;
  void SetScrollHeight(int height);
  // The cell of entry `index`, in content coordinates.
  static QRect CellOf(int index);
  // Draws the entry's picture inside `cell`: its thumbnail or a placeholder
  // for a photo that equals its file, its pixels or the picture kept of them
  // for any other.
  void DrawPicture(QPainter &painter, int index, const QRect &cell);

  // Thumbnails: the entries whose pixels equal their files are shown from
  // thumbnails made off this thread; the others from the pixels they hold.
  bool FromFile(int index) const;
  // Whether entry `index` lies on a row shown or the one after them.
  bool Wanted(int index) const;
  void OnPhotoAdded(int index);
  void OnPhotoReplaced(int index);
  void OnPhotoRemoved();
  void OnThumbnailReady(const QString &path, const QImage &thumb);
  void OnThumbnailFailed(const QString &path);
  void Ask(int index);
  // Forgets thumbnails and requests no entry needs any more.
  void Prune();
  // Ranks the waiting requests: rows on screen and one beyond first.
  void Rerank();
  void RepaintEntriesOf(const QString &path);
  void SetEditing(bool editing);

  QPointer<CKorvelAppDoc> doc_;
  QList<QRect> cells_;
  QRect client_;
  MenuRunner menuRunner_;
  Thumbnailer thumbnailer_;
  QHash<QString, QPixmap> thumbs_;
  QSet<QString> asked_;   // requested, not answered yet
  QSet<QString> failed_;  // the thumbnailer could not read them
  bool editing_ = false;
};
