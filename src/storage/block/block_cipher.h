// Encryption of a database's blocks with the platform's cipher driver, when there is one. The header carries
// the driver's name and a check text encrypted with the key, so that a wrong key is told at open. Header
// blocks themselves are never encrypted.
#pragma once

#include "storage/block/block_manager.h"

namespace tovik {

// Creation with ENCRYPT_KEY: opens the cipher and puts name and key check into fields. 120107, 20016,
// 20017, 1.
[[nodiscard]] bool cipher_begin(BlockManager &bm, CommonHeader &fields);

// Opening an encrypted database: opens the cipher and checks the key against the header. 120107, 120108,
// 120109, 20016, 20018, 120110, 1.
[[nodiscard]] bool cipher_check(BlockManager &bm);

void cipher_end(BlockManager &bm);

// One block from or into the cipher buffer. 20017 and 20018.
[[nodiscard]] bool cipher_encrypt(BlockManager &bm, const void *plain);
[[nodiscard]] bool cipher_decrypt(BlockManager &bm, void *plain);

}  // namespace tovik
