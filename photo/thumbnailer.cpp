#include "photo/thumbnailer.h"

#include "photo/thumbmaker.h"
#include "platform/workers.h"

Thumbnailer::Thumbnailer(int box, ThumbCache cache, int threads, QObject *parent)
    : QObject(parent),
      box_(box),
      cacheSize_(ThumbCache::FlavourFor(box)),
      cache_(std::move(cache)) {
  const int count = threads > 0 ? threads : WorkerCount();
  for (int i = 0; i < count; ++i)
    workers_.emplace_back([this] { Work(); });
}

Thumbnailer::~Thumbnailer() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    stopping_ = true;
    queue_.clear();
  }
  wake_.notify_all();
  for (std::thread &worker : workers_)
    worker.join();
}

void Thumbnailer::Request(const QString &path, int priority) {
  live_.insert(path);
  {
    const std::lock_guard<std::mutex> hold(lock_);
    const auto [it, added] = queue_.try_emplace(path, Job{priority, asked_, false});
    if (added) ++asked_;
    it->second.priority = priority;
  }
  wake_.notify_one();
}

bool Thumbnailer::SetPriority(const QString &path, int priority) {
  const std::lock_guard<std::mutex> hold(lock_);
  const auto it = queue_.find(path);
  if (it == queue_.end()) return false;
  it->second.priority = priority;
  return true;
}

std::optional<int> Thumbnailer::Priority(const QString &path) const {
  const std::lock_guard<std::mutex> hold(lock_);
  const auto it = queue_.find(path);
  if (it == queue_.end()) return std::nullopt;
  return it->second.priority;
}

void Thumbnailer::Cancel(const QString &path) {
  live_.remove(path);
  const std::lock_guard<std::mutex> hold(lock_);
  queue_.erase(path);
  for (auto &[order, held] : inHand_)
    if (held.path == path) held.cancelled = true;
}

void Thumbnailer::CancelAll() {
  live_.clear();
  const std::lock_guard<std::mutex> hold(lock_);
  queue_.clear();
  for (auto &[order, held] : inHand_)
    held.cancelled = true;
}

void Thumbnailer::Pause() {
  const std::lock_guard<std::mutex> hold(lock_);
  paused_ = true;
}

void Thumbnailer::Resume() {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    paused_ = false;
  }
  wake_.notify_all();
}

// The highest priority goes first, so the rows on screen are never kept
// waiting behind the lookups of hundreds below them. Within a priority, cache
// lookups (a file read each, answered at once) go before any thumbnail is
// made, then the earliest asked. A linear pass is cheap next to making one
// thumbnail, even for a work area of thousands.
Thumbnailer::Queue::iterator Thumbnailer::Best() {
  auto best = queue_.begin();
  const auto before = [](const Job &a, const Job &b) {
    if (a.priority != b.priority) return a.priority > b.priority;
    if (a.lookedUp != b.lookedUp) return !a.lookedUp;
    return a.order < b.order;
  };
  for (auto it = queue_.begin(); it != queue_.end(); ++it)
    if (before(it->second, best->second)) best = it;
  return best;
}

bool Thumbnailer::Take(QString *path, Job *job) {
  std::unique_lock<std::mutex> hold(lock_);
  wake_.wait(hold, [this] { return stopping_ || (!paused_ && !queue_.empty()); });
  if (stopping_) return false;
  const auto best = Best();
  *path = best->first;
  *job = best->second;
  queue_.erase(best);
  inHand_[job->order] = InHand{*path, false};
  return true;
}

void Thumbnailer::Done(const Job &job) {
  const std::lock_guard<std::mutex> hold(lock_);
  inHand_.erase(job.order);
}

QImage Thumbnailer::Serve(const QString &path, const Job &job, bool *unanswered) {
  *unanswered = false;
  if (!job.lookedUp) {
    const QImage cached = cache_.Lookup(path, cacheSize_);
    // A photo noted as failed answers at once, as a failure.
    if (!cached.isNull() || cache_.Failed(path)) return cached;
    // Back in the queue to be made, unless it was cancelled while the cache
    // was read: making it then would be work nobody waits for. Either way
    // there is no answer yet; a new request for the path has its own job.
    const std::lock_guard<std::mutex> hold(lock_);
    const auto held = inHand_.find(job.order);
    const bool cancelled = held == inHand_.end() || held->second.cancelled;
    if (held != inHand_.end()) inHand_.erase(held);
    if (!stopping_ && !cancelled) {
      Job again = job;
      again.lookedUp = true;
      queue_.try_emplace(path, again);
    }
    *unanswered = true;
    return {};
  }
  const QImage made = MakeThumbnail(path, cacheSize_);
  if (made.isNull())
    (void)cache_.StoreFailure(path);
  else
    (void)cache_.Store(path, cacheSize_, made);
  return made;
}

void Thumbnailer::Work() {
  QString path;
  Job job{};
  while (Take(&path, &job)) {
    bool unanswered = false;
    QImage thumb = Serve(path, job, &unanswered);
    if (unanswered) {
      wake_.notify_one();
      continue;
    }
    Done(job);
    // Scaled here rather than at each paint.
    if (!thumb.isNull() && (thumb.width() > box_ || thumb.height() > box_))
      thumb = thumb.scaled(box_, box_, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    Post(path, thumb);
  }
}

void Thumbnailer::Post(const QString &path, const QImage &thumb) {
  // Queued to this object: the event goes with it if it is destroyed first,
  // and the destructor waits for the workers before that.
  QMetaObject::invokeMethod(
      this, [this, path, thumb] { Deliver(path, thumb); }, Qt::QueuedConnection);
}

void Thumbnailer::Deliver(const QString &path, const QImage &thumb) {
  // A request cancelled after its thumbnail was made gets no answer.
  if (!live_.remove(path)) return;
  if (thumb.isNull())
    emit thumbnailFailed(path);
  else
    emit thumbnailReady(path, thumb);
}
