// How a database's parts lie in storages, and what the storages are called. The names stand above the source.
#pragma once

#include "storage/params/params.h"

namespace tovik {

enum PartNo : int { part_dat = 0, part_trn = 1 };

// Database types.
enum class DatabaseType : uint8_t { ordinary = 0, temporary = 1 };

inline constexpr int storage_name_size = 256;  // with the terminator
inline constexpr int memory_name_size = 32;    // of a storage in memory
using StorageName = char[storage_name_size];

inline constexpr char default_suffix_dat[] = ".dat";
inline constexpr char default_suffix_trn[] = ".trn";
inline constexpr char default_suffix_tmp[] = ".tmp";

// Layout attributes of a manage type.
bool layout_single(ManageType type);   // one storage for both parts
bool layout_named(ManageType type);    // named in the file system
bool layout_unnamed(ManageType type);  // opened without a name

// Names of the storages, at most 255 characters; false with 112012 when longer. A temporary database's name
// carries the process and thread identifiers.
[[nodiscard]] bool storage_name(const Params &params, DatabaseType type, PartNo part, StorageName name);

// The saved transaction storage numbered number for the TRN storage trn_name: "orders.7.trn_". 112012.
[[nodiscard]] bool saved_storage_name(const char *trn_name, uint32_t number, StorageName name);

}  // namespace tovik
