// The registered vocabulary (class TiffPictureTQV, the FolderItem extension, global methods) and
// its registration with the host.
#ifndef TQV_BRIDGE_REGISTRATION_H
#define TQV_BRIDGE_REGISTRATION_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// The class record; the host fills in its data offset at registration.
extern REALclassDefinition tiffClass;
extern REALclassDefinition folderitemClass;

// Events in registration order; the host fills in each event's word at registration.
enum class TiffEvent { Error = 0, Warning = 1, Progress = 2 };
intptr_t EventWord(TiffEvent event);

// The console-safety markers translated for the host's version: from 2010.029 on, 0x40000 adds
// 4 and 0x80000 adds 8; on older or unknown hosts nothing is added. The markers are always
// cleared.
uint32_t FixConsoleFlags(uint32_t flags);
void FixConsoleFlags(REALclassDefinition* definition);
void FixConsoleFlags(REALmethodDefinition* methods, uint32_t count);

// Installs the libtiff message handlers, adjusts the flags and registers everything.
void PluginEntry();

}  // namespace tqv

#endif  // TQV_BRIDGE_REGISTRATION_H
