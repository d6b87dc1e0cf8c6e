// Opening many photos at once from the application: drops, the command line
// and photos handed over by a later launch. A long batch shows its progress
// and can be stopped; what opened before the stop stays in the work area.
#pragma once

#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <memory>

#include "photo/document.h"
#include "photo/photofiles.h"

class QProgressDialog;
class QWidget;

// The progress of one batch, as a dialog over `parent` that appears only when
// the batch is still running after half a second, so that a few quick files
// open without a flash. Its Cancel button stops the batch.
class COpenProgress {
 public:
  static constexpr int kShowAfterMs = 500;

  explicit COpenProgress(QWidget *parent);
  ~COpenProgress();
  COpenProgress(const COpenProgress &) = delete;
  COpenProgress &operator=(const COpenProgress &) = delete;

  // `done` of `total` files handled; false once the user has cancelled.
  bool Step(int done, int total);
  // Step, in the form the photo layer calls back.
  OpenProgress Callback();

 private:
  QWidget *parent_;
  std::unique_ptr<QProgressDialog> dialog_;
};

// Whether failures are told: the open command and drops name each file that
// did not open; the command line, like any start, passes over them quietly.
enum class OpenReport { kShow, kSilent };

// Opens `paths` into the work area in order, a folder standing for the
// photos in it sorted by name, with progress over `window`. Returns the
// number of photos added.
int OpenPhotos(CKorvelAppDoc *doc, const QStringList &paths, QWidget *window, OpenReport report);
// True while a batch is being opened (its progress lets events through).
bool OpeningPhotos();

// Brings a window to the front, restoring it first when it was minimised.
void RaiseWindow(QWidget *window);

// Photos handed over by a later launch. They wait until the window is free:
// not while another batch runs or a dialog is up, since opening under a
// question would change the work area the question is about. Each delivery
// brings the window to the front.
class CPhotoInbox {
 public:
  CPhotoInbox();
  // The work area the photos open into and its window; until they are set
  // the photos wait.
  void SetTarget(CKorvelAppDoc *doc, QWidget *window);
  void Receive(const QStringList &paths);
  const QStringList &Waiting() const { return waiting_; }

 private:
  void Deliver();

  QPointer<CKorvelAppDoc> doc_;
  QPointer<QWidget> window_;
  QStringList waiting_;
  QTimer retry_;
};
