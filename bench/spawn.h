// Starting a peer program with its standard output thrown away, for timing.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

// Runs argv[0] with argv (null-terminated); true when it exited with 0.
inline bool SpawnQuiet(char *const *argv) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  int status = 0;
  const bool ok = posix_spawnp(&pid, argv[0], &actions, nullptr, argv, environ) == 0 &&
                  waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  posix_spawn_file_actions_destroy(&actions);
  return ok;
}
