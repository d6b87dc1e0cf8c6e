// The part of the TWAIN image-acquisition interface that the program speaks:
// types, structures, the triplet constants and the manager's entry point, with
// the values the published standard gives them. Only what the session, its
// tests and their stand-in manager and source use is declared here.
//
// Layout follows the standard's rules for this platform: structures packed
// on two-byte boundaries, 32-bit unsigned integers of 32 bits also on 64-bit
// systems (as in the standard's later revisions), handles and memory
// references pointer-sized.
#pragma once

#include <cstddef>
#include <cstdint>

using TW_INT16 = int16_t;
using TW_INT32 = int32_t;
using TW_UINT8 = uint8_t;
using TW_UINT16 = uint16_t;
using TW_UINT32 = uint32_t;
using TW_BOOL = uint16_t;
using TW_HANDLE = void *;
using TW_MEMREF = void *;
using TW_UINTPTR = uintptr_t;
using TW_STR32 = char[34];

#pragma pack(push, 2)

struct TW_VERSION {
  TW_UINT16 MajorNum, MinorNum;
  TW_UINT16 Language, Country;
  TW_STR32 Info;
};

struct TW_IDENTITY {
  TW_UINT32 Id;
  TW_VERSION Version;
  TW_UINT16 ProtocolMajor, ProtocolMinor;
  TW_UINT32 SupportedGroups;
  TW_STR32 Manufacturer, ProductFamily, ProductName;
};
using pTW_IDENTITY = TW_IDENTITY *;

struct TW_USERINTERFACE {
  TW_BOOL ShowUI;
  TW_BOOL ModalUI;
  TW_HANDLE hParent;
};

struct TW_PENDINGXFERS {
  TW_UINT16 Count;
  TW_UINT32 EOJ;  // also "Reserved" in the standard's union
};

struct TW_EVENT {
  TW_MEMREF pEvent;
  TW_UINT16 TWMessage;
};

struct TW_STATUS {
  TW_UINT16 ConditionCode;
  TW_UINT16 Data;  // also "Reserved"
};

struct TW_CALLBACK {
  TW_MEMREF CallBackProc;
  TW_UINT32 RefCon;
  TW_INT16 Message;
};

struct TW_CALLBACK2 {
  TW_MEMREF CallBackProc;
  TW_UINTPTR RefCon;
  TW_INT16 Message;
};

#pragma pack(pop)

// The manager's single entry point, and the callback a version 2 manager
// calls with a source's notifications.
using DSMENTRYPROC = TW_UINT16 (*)(pTW_IDENTITY origin, pTW_IDENTITY dest, TW_UINT32 dg,
                                   TW_UINT16 dat, TW_UINT16 msg, TW_MEMREF data);
using DSMCALLBACKPROC = DSMENTRYPROC;
// A source library's entry point, which the manager calls.
using DSENTRYPROC = TW_UINT16 (*)(pTW_IDENTITY origin, TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg,
                                  TW_MEMREF data);

// Memory that a version 2 manager hands out for native transfers.
using DSM_MEMALLOCATE = TW_HANDLE (*)(TW_UINT32 size);
using DSM_MEMFREE = void (*)(TW_HANDLE handle);
using DSM_MEMLOCK = TW_MEMREF (*)(TW_HANDLE handle);
using DSM_MEMUNLOCK = void (*)(TW_HANDLE handle);

#pragma pack(push, 2)
struct TW_ENTRYPOINT {
  TW_UINT32 Size;
  DSMENTRYPROC DSM_Entry;
  DSM_MEMALLOCATE DSM_MemAllocate;
  DSM_MEMFREE DSM_MemFree;
  DSM_MEMLOCK DSM_MemLock;
  DSM_MEMUNLOCK DSM_MemUnlock;
};
#pragma pack(pop)

// The triplet constants, a line for each group of one kind.
// Data groups, and the flags of SupportedGroups for version 2 parties.
constexpr TW_UINT32 DG_CONTROL = 0x0001, DG_IMAGE = 0x0002;
constexpr TW_UINT32 DF_DSM2 = 0x10000000, DF_APP2 = 0x20000000, DF_DS2 = 0x40000000;

// Data argument types: control ones, then the image transfer, then the manager's entry points.
constexpr TW_UINT16 DAT_NULL = 0x0000, DAT_EVENT = 0x0002, DAT_IDENTITY = 0x0003,
                    DAT_PARENT = 0x0004, DAT_PENDINGXFERS = 0x0005, DAT_STATUS = 0x0008,
                    DAT_USERINTERFACE = 0x0009, DAT_CALLBACK = 0x0010, DAT_CALLBACK2 = 0x0012;
constexpr TW_UINT16 DAT_IMAGENATIVEXFER = 0x0104;
constexpr TW_UINT16 DAT_ENTRYPOINT = 0x0403;

// Messages, a line for each group their high byte names.
constexpr TW_UINT16 MSG_NULL = 0x0000;
constexpr TW_UINT16 MSG_GET = 0x0001, MSG_GETDEFAULT = 0x0003, MSG_GETFIRST = 0x0004,
                    MSG_GETNEXT = 0x0005, MSG_SET = 0x0006, MSG_RESET = 0x0007;
constexpr TW_UINT16 MSG_XFERREADY = 0x0101, MSG_CLOSEDSREQ = 0x0102, MSG_CLOSEDSOK = 0x0103;
constexpr TW_UINT16 MSG_OPENDSM = 0x0301, MSG_CLOSEDSM = 0x0302;
constexpr TW_UINT16 MSG_OPENDS = 0x0401, MSG_CLOSEDS = 0x0402, MSG_USERSELECT = 0x0403;
constexpr TW_UINT16 MSG_DISABLEDS = 0x0501, MSG_ENABLEDS = 0x0502;
constexpr TW_UINT16 MSG_PROCESSEVENT = 0x0601;
constexpr TW_UINT16 MSG_ENDXFER = 0x0701;
constexpr TW_UINT16 MSG_REGISTER_CALLBACK = 0x0902;

// Return codes.
constexpr TW_UINT16 TWRC_SUCCESS = 0, TWRC_FAILURE = 1, TWRC_CHECKSTATUS = 2, TWRC_CANCEL = 3,
                    TWRC_DSEVENT = 4, TWRC_NOTDSEVENT = 5, TWRC_XFERDONE = 6, TWRC_ENDOFLIST = 7;

// Condition codes: general ones, then those about capabilities.
constexpr TW_UINT16 TWCC_SUCCESS = 0, TWCC_BUMMER = 1, TWCC_LOWMEMORY = 2, TWCC_NODS = 3,
                    TWCC_MAXCONNECTIONS = 4, TWCC_OPERATIONERROR = 5, TWCC_BADPROTOCOL = 9,
                    TWCC_BADVALUE = 10, TWCC_SEQERROR = 11, TWCC_BADDEST = 12;
constexpr TW_UINT16 TWCC_BADCAP = 6, TWCC_CAPUNSUPPORTED = 13, TWCC_CAPBADOPERATION = 14,
                    TWCC_CAPSEQERROR = 15;

// Languages and countries used by the application's identity.
constexpr TW_UINT16 TWLG_USA = 13, TWCY_USA = 1;

static_assert(sizeof(TW_IDENTITY) == 156, "TW_IDENTITY must keep the standard's layout");
static_assert(offsetof(TW_IDENTITY, ProtocolMajor) == 46 &&
                  offsetof(TW_IDENTITY, ProductName) == 122,
              "TW_IDENTITY must keep the standard's layout");
