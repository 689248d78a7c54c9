#include "platform/charset/unicode_folds.h"

namespace tovik {

uint32_t unicode_katakana_of(uint32_t hiragana) {
  return hiragana + 0x60;
}

uint32_t unicode_full_katakana_of(int half_index) {
  const uint32_t euc = full_katakana_euc[half_index];
  switch (euc) {
    case 0xA1A2:
      return 0x3001;  // ideographic comma
    case 0xA1A3:
      return 0x3002;  // ideographic full stop
    case 0xA1A6:
      return 0x30FB;  // middle dot
    case 0xA1AB:
      return 0x309B;  // voiced mark
    case 0xA1AC:
      return 0x309C;  // semi-voiced mark
    case 0xA1BC:
      return 0x30FC;  // prolonged sound mark
    case 0xA1D6:
      return 0x300C;  // left corner bracket
    case 0xA1D7:
      return 0x300D;  // right corner bracket
    default:
      return 0x30A1 + (euc - 0xA5A1);
  }
}

}  // namespace tovik
