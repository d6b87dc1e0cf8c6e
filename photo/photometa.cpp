#include "photo/photometa.h"

#include <QFile>
#include <QSettings>
#include <map>
#include <string>

#include "photo/dibplanar.h"
#include "photo/settings.h"
#include "pixels/orient.h"

namespace {

// The work area is used from the user-interface thread only.
std::map<QString, KeptMeta> &ByPath() {
  static std::map<QString, KeptMeta> kept;
  return kept;
}
std::map<HGLOBAL, KeptMeta> &Waiting() {
  static std::map<HGLOBAL, KeptMeta> kept;
  return kept;
}

// The stored picture turned by `orientation`; the stored block goes.
HGLOBAL Turned(HGLOBAL handle, int orientation) {
  if (!handle || orientation == 1) return handle;
  const CDib stored(handle);
  const Planar planes(PlanarFromDib(stored));
  if (!planes) return nullptr;
  const Planar upright(PlanarCreateOriented(planes.get(), orientation));
  if (!upright || OrientImage(planes.get(), orientation, upright.get()) != 0) return nullptr;
  return DibFromPlanar(upright.get());
}

PhotoMeta BytesMeta(const QByteArray &bytes) {
  PhotoMeta meta;
  (void)MetaReadBytes(reinterpret_cast<const uint8_t *>(bytes.constData()),
                      static_cast<size_t>(bytes.size()), &meta);
  return meta;
}

// Saved pixels are upright: orientation 1.
MetaSaveInfo SavedInfo(const CDib &picture) {
  return {static_cast<int32_t>(picture.Width()), static_cast<int32_t>(picture.Height()), 1};
}

}  // namespace

KeptMeta ReadOpenedMeta(const QString &path) {
  KeptMeta kept;
  (void)MetaRead(QFile::encodeName(path).constData(), &kept.meta);
  kept.source = path;
  kept.appliedOrientation = kept.meta.orientation;
  return kept;
}

HGLOBAL UprightOpenedPhoto(HGLOBAL handle, const QString &path, KeptMeta *kept) {
  *kept = ReadOpenedMeta(path);
  return Turned(handle, kept->meta.orientation);
}

void KeepOpenedMeta(const QString &path, KeptMeta kept) {
  ByPath()[path] = std::move(kept);
}

HGLOBAL UprightReceivedPhoto(HGLOBAL handle, const QByteArray &bytes) {
  return Turned(handle, BytesMeta(bytes).orientation);
}

HGLOBAL KeepReceivedMeta(HGLOBAL handle, const QByteArray &bytes) {
  Waiting().clear();
  if (!handle) return handle;
  KeptMeta kept{BytesMeta(bytes), QString(), 1};
  kept.appliedOrientation = kept.meta.orientation;
  if (!kept.meta.Empty()) Waiting()[handle] = std::move(kept);
  return handle;
}

void AdoptKeptMeta(HGLOBAL handle, const QString &path) {
  const auto it = Waiting().find(handle);
  if (it == Waiting().end()) {
    ByPath().erase(path);
    return;
  }
  it->second.source = path;
  ByPath()[path] = std::move(it->second);
  Waiting().erase(it);
}

const KeptMeta *KeptMetaFor(const QString &path, HGLOBAL handle) {
  if (const auto it = ByPath().find(path); it != ByPath().end()) return &it->second;
  if (const auto it = Waiting().find(handle); handle && it != Waiting().end()) return &it->second;
  return nullptr;
}

void CarryKeptMeta(const QString &from, const QString &to) {
  if (from == to) return;
  const auto it = ByPath().find(from);
  if (it == ByPath().end()) {
    ByPath().erase(to);
    return;
  }
  KeptMeta copy = it->second;
  ByPath()[to] = std::move(copy);
}

void ShareKeptMeta(const QString &from, const QString &to, bool withoutPrivate) {
  CarryKeptMeta(from, to);
  if (const auto it = ByPath().find(to); withoutPrivate && it != ByPath().end())
    MetaStripPrivate(&it->second.meta);
}

// On by default: a photo sent away is out of the user's hands for good, and
// the position in a phone photo is often their home; who wants it sent
// turns the setting off.
bool StripPrivateOnShare() {
  return KorvelSettings()->value("privacy/stripLocation", true).toBool();
}

void HandKeptMetaToEncoder(uint32_t format, const QString &path, const CDib &picture) {
  const KeptMeta *kept = KeptMetaFor(path, picture.Handle());
  MetaHandToEncoder(format, kept ? kept->meta : PhotoMeta{}, SavedInfo(picture));
}

void WriteKeptMeta(const char *file, const QString &path, const CDib &picture) {
  const KeptMeta *kept = KeptMetaFor(path, picture.Handle());
  if (!kept) return;
  const MetaSaveInfo info = SavedInfo(picture);
  std::string why;
  if (!MetaWrite(file, kept->meta, info, &why))
    qWarning("%s: saved without its metadata: %s", qPrintable(path), why.c_str());
}
