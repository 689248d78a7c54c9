#include "storage/block/block_cipher.h"

#include <cstring>

#include "frame/error.h"

namespace tovik {

namespace {

constexpr int check_size = sizeof(CommonHeader::key_check);
constexpr char check_text[check_size + 1] = "block cipher key check text, 32b";
static_assert(sizeof(check_text) == check_size + 1);

bool open_cipher(BlockManager &bm, const CipherDriver &driver) {
  const char *options[10] = {};
  for (int i = 0; i < 10; ++i) {
    const char *name = driver.option_names[i];
    if (name != nullptr && name[0] != '\0') options[i] = param_lookup(*bm.params, name);
  }
  bm.cipher = driver.open(bm.params->encrypt_key, options);
  if (bm.cipher == nullptr) return fail(status::cipher_open);
  bm.cipher_buffer = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(bm_block_size(bm))));
  return bm.cipher_buffer != nullptr || fail(status::out_of_memory);
}

}  // namespace

bool cipher_begin(BlockManager &bm, CommonHeader &fields) {
  const CipherDriver *driver = system_driver.cipher_driver;
  if (driver == nullptr) return fail(status::cipher_no_driver);
  if (!open_cipher(bm, *driver)) return false;
  fields.encrypted = 1;
  strncpy(fields.cipher_name, driver->name, sizeof fields.cipher_name - 1);
  return driver->encrypt(bm.cipher, check_text, fields.key_check, check_size) >= 0 ||
         fail(status::cipher_encrypt);
}

bool cipher_check(BlockManager &bm) {
  const CipherDriver *driver = system_driver.cipher_driver;
  if (driver == nullptr) return fail(status::cipher_no_driver);
  if (strncmp(driver->name, bm.common.cipher_name, sizeof bm.common.cipher_name - 1) != 0)
    return fail(status::cipher_other_driver);
  if (bm.params->encrypt_key == nullptr) return fail(status::cipher_no_key);
  if (!open_cipher(bm, *driver)) return false;
  uint8_t plain[check_size];
  if (driver->decrypt(bm.cipher, bm.common.key_check, plain, check_size) < 0)
    return fail(status::cipher_decrypt);
  return memcmp(plain, check_text, check_size) == 0 || fail(status::cipher_wrong_key);
}

void cipher_end(BlockManager &bm) {
  mem_free(bm.cipher_buffer);
  bm.cipher_buffer = nullptr;
  if (bm.cipher != nullptr) system_driver.cipher_driver->close(bm.cipher);
  bm.cipher = nullptr;
}

bool cipher_encrypt(BlockManager &bm, const void *plain) {
  return system_driver.cipher_driver->encrypt(bm.cipher, plain, bm.cipher_buffer, bm_block_size(bm)) >= 0 ||
         fail(status::cipher_encrypt);
}

bool cipher_decrypt(BlockManager &bm, void *plain) {
  return system_driver.cipher_driver->decrypt(bm.cipher, bm.cipher_buffer, plain, bm_block_size(bm)) >= 0 ||
         fail(status::cipher_decrypt);
}

}  // namespace tovik
