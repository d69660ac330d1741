// Lookup-table import: the current image (or a rectangle of it) into the session's Pict, every
// sample passed through a colour table of the host program. For 8-, 16- and 32-bit grey and
// three-sample data whose tone curve or palette the program wants to choose itself. Photometric
// and the file's own colour map are not consulted; Mask stays nil.
#ifndef TQV_IMPORT_LUT_H
#define TQV_IMPORT_LUT_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// "ReadWithLUT(ColorLookupTable() as color) as boolean": the whole image; false without touching
// the pictures when nothing is open.
bool Read16(REALobject object, REALarray table);
// "ReadWithLUT(ColorLookupTable() as color, left, top, width, height) as boolean". Entry i of the
// table (0x00RRGGBB, at most 65,536 entries, a nil table counts as empty) colours sample value i;
// values past the table's end are black. One sample: (R, G, B) of its entry. Three samples: the
// red of the first sample's entry, the green of the second's, the blue of the third's. 32-bit
// samples index by their signed value divided by 65,536, negative quotients by 0.
bool Read16rect(REALobject object, REALarray table, int32_t left, int32_t top, int32_t width, int32_t height);

}  // namespace tqv

#endif  // TQV_IMPORT_LUT_H
