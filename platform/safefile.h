// Photo files that appear complete or not at all. The new contents go to a
// temporary file created exclusively beside the target; only once every byte
// is written and on the disk is it moved into place, so a full disk, a quota
// or an I/O error in the middle of a save never costs the file that was there.
#pragma once

#include <string>

class ReplacingFile {
 public:
  enum Mode {
    kReplace,  // the target may exist and is replaced whole
    kNew,      // the target must not exist: see CommitNew
  };

  // Creates the temporary file "TARGET.XXXXXX". When replacing, a target that
  // is a symbolic link is followed, so the file it names is the one replaced
  // (the link stays a link), and the new file takes the old one's permissions.
  // A new file is made in the folder of the name itself and never follows it.
  explicit ReplacingFile(const std::string &target, Mode mode = kReplace);
  ~ReplacingFile();
  ReplacingFile(const ReplacingFile &) = delete;
  ReplacingFile &operator=(const ReplacingFile &) = delete;

  // 0 when the file to write could be made, else the errno of the failure.
  int error() const { return error_; }
  // The name to write the contents to. A target that exists and is no
  // regular file (a terminal, a pipe, a device) cannot be replaced: it is
  // written directly, as it always was.
  const std::string &path() const { return direct_ ? target_ : temp_; }
  // Whether a regular file stood at the target when writing began.
  bool replacing() const { return existed_; }
  // Whether the target is written in place, being no regular file.
  bool direct() const { return direct_; }

  // Asks the system to start writing what has reached the file so far to
  // the disk, without waiting for it, so that Commit's flush has little left
  // to wait for; only when a file is replaced (nothing else is flushed).
  void StartWriteback();
  // Flushes the written file to the disk, renames it over the target and
  // flushes the folder; a target that did not exist is only renamed into
  // place, as a power cut could cost nothing but the new file. 0, or the errno of the failure,
  // after which the target is as it was and the temporary file is gone.
  int Commit();
  // Gives the written file the name `name` (in the same file system) only if
  // nothing has it, not even a dangling symbolic link: EEXIST then, with the
  // written file kept for another name. 0 or an errno.
  int CommitNew(const std::string &name);

 private:
  int Flush(bool sync);  // closes the file, after an fsync when `sync`
  void Discard();

  std::string target_;
  std::string temp_;
  int fd_ = -1;
  int error_ = 0;
  bool direct_ = false;
  bool existed_ = false;
};
