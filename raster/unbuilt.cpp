// Formats the dispatch and the probe already reach but whose readers and
// writers are not written yet: Targa, Scitex CT, EPS, DCS, Photo CD, Cineon
// and 16-bit TIFF. Each refuses with "unsupported", so the probe passes over
// it and a writer fails before it creates a file.
#include "raster/formats.h"

#define RAS_UNBUILT_FORMAT(Prefix)                            \
  int Prefix##Open(const char *, char, RasDesc *) {           \
    return RasError(#Prefix "Open", RasErrUnsupported, 0);    \
  }                                                           \
  int Prefix##ReadSl(RasDesc *, uint32_t, RasSl *) {          \
    return RasError(#Prefix "ReadSl", RasErrUnsupported, 0);  \
  }                                                           \
  int Prefix##WriteSl(RasDesc *, uint32_t, const RasSl *) {   \
    return RasError(#Prefix "WriteSl", RasErrUnsupported, 0); \
  }                                                           \
  int Prefix##Close(RasDesc *) {                              \
    return RasOk;                                             \
  }

RAS_UNBUILT_FORMAT(Targa)
RAS_UNBUILT_FORMAT(Scitex)
RAS_UNBUILT_FORMAT(Eps)
RAS_UNBUILT_FORMAT(Dcs)
RAS_UNBUILT_FORMAT(Pcd)
RAS_UNBUILT_FORMAT(Cineon)
RAS_UNBUILT_FORMAT(Tiff16)
