// Subcommands of korvel-raster. Each takes the arguments after its name and
// returns the process exit status.
#pragma once

int RunInfo(int argc, char **argv);
int RunConvert(int argc, char **argv);
int RunRotate(int argc, char **argv);
int RunCrop(int argc, char **argv);
int RunZoom(int argc, char **argv);
int RunRedEye(int argc, char **argv);
int RunColor(int argc, char **argv);
