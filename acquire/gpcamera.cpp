// libgphoto2 behind the camera class: abilities and port looked up once per
// camera, one context for its calls, files copied out of libgphoto2's buffers
// at once so that nothing of it outlives a call.
#include "acquire/gpcamera.h"

#include <gphoto2/gphoto2.h>

#include <QProcess>
#include <QRegularExpression>

namespace {

// Folders deeper than this are not walked: real cameras nest three or four.
constexpr int kMaxDepth = 12;

class CameraListHolder {
 public:
  CameraListHolder() { gp_list_new(&list_); }
  ~CameraListHolder() {
    if (list_) gp_list_free(list_);
  }
  CameraListHolder(const CameraListHolder &) = delete;
  CameraListHolder &operator=(const CameraListHolder &) = delete;
  CameraList *get() const { return list_; }

  QStringList Names() const {
    QStringList names;
    const int count = list_ ? gp_list_count(list_) : 0;
    for (int i = 0; i < count; ++i) {
      const char *name = nullptr;
      if (gp_list_get_name(list_, i, &name) == GP_OK && name) names << QString::fromUtf8(name);
    }
    return names;
  }

 private:
  CameraList *list_ = nullptr;
};

// Copies one file of the camera into `bytes`.
int GetFile(Camera *camera, GPContext *context, const QString &folder, const QString &name,
            CameraFileType type, QByteArray *bytes) {
  CameraFile *file = nullptr;
  int result = gp_file_new(&file);
  if (result != GP_OK) return result;
  result = gp_camera_file_get(camera, folder.toUtf8().constData(), name.toUtf8().constData(), type,
                              file, context);
  if (result == GP_OK) {
    const char *data = nullptr;
    unsigned long size = 0;
    result = gp_file_get_data_and_size(file, &data, &size);
    if (result == GP_OK) *bytes = QByteArray(data, static_cast<qsizetype>(size));
  }
  gp_file_unref(file);
  return result;
}

QString Join(const QString &folder, const QString &name) {
  return folder.endsWith('/') ? folder + name : folder + '/' + name;
}

}  // namespace

struct CGpCamera::Handles {
  Camera *camera = nullptr;
  GPContext *context = nullptr;
};

std::vector<GpCameraId> GpFindCameras(const QStringList &extra) {
  std::vector<GpCameraId> cameras;
  GPContext *context = gp_context_new();
  CameraListHolder list;
  if (list.get() && gp_camera_autodetect(list.get(), context) >= GP_OK) {
    for (int i = 0; i < gp_list_count(list.get()); ++i) {
      const char *model = nullptr;
      const char *port = nullptr;
      if (gp_list_get_name(list.get(), i, &model) != GP_OK ||
          gp_list_get_value(list.get(), i, &port) != GP_OK || !model || !port)
        continue;
      cameras.push_back({QString::fromUtf8(model), QString::fromUtf8(port)});
    }
  }
  if (context) gp_context_unref(context);
  for (const QString &entry : extra) {
    const qsizetype bar = entry.indexOf('|');
    if (bar <= 0 || bar == entry.size() - 1) continue;
    GpCameraId id{entry.left(bar).trimmed(), entry.mid(bar + 1).trimmed()};
    bool known = false;
    for (const GpCameraId &camera : cameras)
      known = known || (camera.model == id.model && camera.port == id.port);
    if (!known && !id.model.isEmpty() && !id.port.isEmpty()) cameras.push_back(id);
  }
  return cameras;
}

CGpCamera::CGpCamera(GpCameraId id) : id_(std::move(id)), handles_(std::make_unique<Handles>()) {}

CGpCamera::~CGpCamera() {
  Close();
  if (handles_->camera) gp_camera_unref(handles_->camera);
  if (handles_->context) gp_context_unref(handles_->context);
}

int CGpCamera::Open() {
  if (open_) return GP_OK;
  if (!handles_->context) handles_->context = gp_context_new();
  if (!handles_->camera) {
    const int result = gp_camera_new(&handles_->camera);
    if (result != GP_OK) return result;
    // The driver and the port are named rather than probed for, so that
    // exactly the chosen camera is claimed.
    CameraAbilitiesList *abilities = nullptr;
    int found = gp_abilities_list_new(&abilities);
    if (found == GP_OK) found = gp_abilities_list_load(abilities, handles_->context);
    if (found == GP_OK)
      found = gp_abilities_list_lookup_model(abilities, id_.model.toUtf8().constData());
    CameraAbilities ability{};
    if (found >= GP_OK) found = gp_abilities_list_get_abilities(abilities, found, &ability);
    if (abilities) gp_abilities_list_free(abilities);
    if (found >= GP_OK) found = gp_camera_set_abilities(handles_->camera, ability);

    GPPortInfoList *ports = nullptr;
    if (found >= GP_OK) found = gp_port_info_list_new(&ports);
    if (found >= GP_OK) found = gp_port_info_list_load(ports);
    if (found >= GP_OK) found = gp_port_info_list_lookup_path(ports, id_.port.toUtf8().constData());
    GPPortInfo info = nullptr;
    if (found >= GP_OK) found = gp_port_info_list_get_info(ports, found, &info);
    if (found >= GP_OK) found = gp_camera_set_port_info(handles_->camera, info);
    if (ports) gp_port_info_list_free(ports);
    if (found < GP_OK) {
      // A half set-up camera is not kept: the next Open starts afresh.
      gp_camera_unref(handles_->camera);
      handles_->camera = nullptr;
      return found;
    }
  }
  const int result = gp_camera_init(handles_->camera, handles_->context);
  open_ = result == GP_OK;
  return result;
}

void CGpCamera::Close() {
  if (open_ && handles_->camera) gp_camera_exit(handles_->camera, handles_->context);
  open_ = false;
}

int CGpCamera::List(std::vector<GpPicture> *pictures, bool previews) {
  pictures->clear();
  if (!open_) return GP_ERROR_BAD_PARAMETERS;
  return ListFolder(QStringLiteral("/"), pictures, previews, 0);
}

int CGpCamera::ListFolder(const QString &folder, std::vector<GpPicture> *pictures, bool previews,
                          int depth) {
  Camera *camera = handles_->camera;
  GPContext *context = handles_->context;
  const QByteArray path = folder.toUtf8();
  CameraListHolder files;
  int result = gp_camera_folder_list_files(camera, path.constData(), files.get(), context);
  if (result < GP_OK) return result;
  for (const QString &name : files.Names()) {
    GpPicture picture{folder, name, {}};
    // A camera without previews still lists its pictures.
    if (previews)
      (void)GetFile(camera, context, folder, name, GP_FILE_TYPE_PREVIEW, &picture.preview);
    pictures->push_back(std::move(picture));
  }
  if (depth >= kMaxDepth) return GP_OK;
  CameraListHolder folders;
  result = gp_camera_folder_list_folders(camera, path.constData(), folders.get(), context);
  if (result < GP_OK) return result;
  for (const QString &name : folders.Names()) {
    result = ListFolder(Join(folder, name), pictures, previews, depth + 1);
    if (result < GP_OK) return result;
  }
  return GP_OK;
}

int CGpCamera::Download(const GpPicture &picture, QByteArray *bytes) {
  bytes->clear();
  if (!open_) return GP_ERROR_BAD_PARAMETERS;
  return GetFile(handles_->camera, handles_->context, picture.folder, picture.name,
                 GP_FILE_TYPE_NORMAL, bytes);
}

QString CGpCamera::ResultText(int code) {
  return QString::fromUtf8(gp_result_as_string(code));
}

bool CGpCamera::IsBusy(int code) {
  return code == GP_ERROR_IO_USB_CLAIM;
}

QString GpDesktopMountFor(const QString &listing, const QString &port) {
  // libgphoto2 names a USB camera by bus and device ("usb:001,005"); the
  // desktop's volume monitors show the same device as /dev/bus/usb/001/005
  // or inside the mount's own address.
  static const QRegularExpression usb(QStringLiteral("^usb:(\\d+),(\\d+)$"));
  const QRegularExpressionMatch match = usb.match(port);
  QStringList keys{port};
  if (match.hasMatch())
    keys << QStringLiteral("/dev/bus/usb/%1/%2").arg(match.captured(1), match.captured(2))
         << QStringLiteral("[usb:%1,%2]").arg(match.captured(1), match.captured(2));
  static const QRegularExpression root(QStringLiteral("((?:gphoto2|mtp)://[^\\s]+)"));
  // The listing is a sequence of blocks, each opened by an unindented or
  // once-indented "Mount(" or "Volume(" line; a block that mentions the
  // device and a camera address names the mount to release.
  QStringList blocks;
  for (const QString &line : listing.split('\n')) {
    const QString trimmed = line.trimmed();
    if (trimmed.startsWith(QLatin1String("Volume(")) ||
        trimmed.startsWith(QLatin1String("Mount(")) ||
        trimmed.startsWith(QLatin1String("Drive(")) || blocks.isEmpty())
      blocks << QString();
    blocks.last() += line + '\n';
  }
  for (const QString &block : blocks) {
    bool mentions = false;
    for (const QString &key : keys)
      mentions = mentions || block.contains(key);
    if (!mentions) continue;
    const QRegularExpressionMatch address = root.match(block);
    if (address.hasMatch()) return address.captured(1);
  }
  return QString();
}

QStringList GpUnmountCommand(const QString &mount) {
  return {QStringLiteral("gio"), QStringLiteral("mount"), QStringLiteral("-u"), mount};
}

bool GpReleaseDesktopMount(const QString &port, QString *mount) {
  QProcess list;
  list.start(QStringLiteral("gio"), {QStringLiteral("mount"), QStringLiteral("-li")});
  if (!list.waitForFinished(5000)) {
    list.kill();
    list.waitForFinished(1000);
    return false;
  }
  const QString found = GpDesktopMountFor(QString::fromUtf8(list.readAllStandardOutput()), port);
  if (mount) *mount = found;
  if (found.isEmpty()) return false;
  const QStringList command = GpUnmountCommand(found);
  QProcess unmount;
  unmount.start(command.first(), command.mid(1));
  if (!unmount.waitForFinished(10000)) {
    unmount.kill();
    unmount.waitForFinished(1000);
    return false;
  }
  return unmount.exitStatus() == QProcess::NormalExit && unmount.exitCode() == 0;
}
