// Subcommands of korvel-raster. Each takes the arguments after its name and
// returns the process exit status.
#pragma once

int RunInfo(int argc, char **argv);
int RunConvert(int argc, char **argv);
