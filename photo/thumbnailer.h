// Thumbnails made off the user-interface thread. The thumbnailer owns a few
// worker threads (one a core, or as many as KORVEL_THREADS says) and a queue
// of requests, one a photo path, each with a priority: the grid asks for
// every entry and raises the priority of the rows on screen, so they come
// first. Within a priority, thumbnails already in the disk cache are served
// before any is made; a missing or stale one is made, stored in the cache and
// delivered. A photo the cache notes as failed fails at once.
// Results arrive as signals on the thread that owns the thumbnailer, which
// also makes every call; no call waits for a thumbnail to be made.
#pragma once

#include <QHash>
#include <QImage>
#include <QObject>
#include <QSet>
#include <QString>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "photo/thumbcache.h"

class Thumbnailer : public QObject {
  Q_OBJECT

 public:
  // Thumbnails fitted into `box` x `box` pixels, kept in `cache` at the
  // cache's size that holds the box; `threads` workers, 0 for the default.
  explicit Thumbnailer(int box, ThumbCache cache = ThumbCache(), int threads = 0,
                       QObject *parent = nullptr);
  // Drops what is queued and waits for the thumbnails in hand to be done.
  ~Thumbnailer() override;

  int Box() const { return box_; }
  int Threads() const { return static_cast<int>(workers_.size()); }

  // Asks for the thumbnail of `path`; higher priorities go first, equal
  // ones in the order asked. Asking again for a path still waiting gives it
  // the new priority.
  void Request(const QString &path, int priority = 0);
  // Gives a waiting request a new priority; false when `path` is not waiting
  // (never asked, cancelled, being made or done).
  bool SetPriority(const QString &path, int priority);
  // The priority `path` waits with; none when it is not waiting.
  std::optional<int> Priority(const QString &path) const;
  // Forgets the request for `path`: no signal comes for it afterwards. One
  // being made is finished and stored in the cache all the same; one whose
  // cache lookup is under way is not made when the cache misses.
  void Cancel(const QString &path);
  void CancelAll();
  // While paused no new thumbnail is started (those in hand are finished),
  // and requests and priorities can be changed as one: the grid pauses
  // while it re-ranks a scrolled work area, and while the editor, not the
  // grid, is on screen and wants the cores.
  void Pause();
  void Resume();
  // Requests not yet answered by a signal.
  int Outstanding() const { return static_cast<int>(live_.size()); }

 signals:
  void thumbnailReady(const QString &path, const QImage &thumb);
  // The file could not be read as a picture.
  void thumbnailFailed(const QString &path);

 private:
  struct Job {
    int priority;
    uint64_t order;  // first asked first among equal priorities
    bool lookedUp;   // the cache has been asked and had nothing
  };
  using Queue = std::map<QString, Job>;
  // A job a worker has taken, by its order; a cancel while it is in hand
  // keeps its cache miss from going back into the queue.
  struct InHand {
    QString path;
    bool cancelled;
  };

  void Work();
  // The next job, taken off the queue; false when stopping.
  bool Take(QString *path, Job *job);
  void Done(const Job &job);  // the job is out of the worker's hands
  Queue::iterator Best();
  // Runs on a worker: the cached or a new thumbnail, or null; `unanswered`
  // when a cache miss went back into the queue or was cancelled meanwhile.
  QImage Serve(const QString &path, const Job &job, bool *unanswered);
  void Post(const QString &path, const QImage &thumb);
  void Deliver(const QString &path, const QImage &thumb);

  const int box_;
  const int cacheSize_;
  const ThumbCache cache_;
  mutable std::mutex lock_;
  std::condition_variable wake_;
  Queue queue_;                        // under lock_
  std::map<uint64_t, InHand> inHand_;  // under lock_
  uint64_t asked_ = 0;
  bool stopping_ = false;
  bool paused_ = false;
  std::vector<std::thread> workers_;
  // Owning thread only: the paths whose answer is still wanted.
  QSet<QString> live_;
};
