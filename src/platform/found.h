// The answer of whatever looks for something or takes the next of several: it is there, it is not, or that
// could not be told. Only `failed` records a status.
#pragma once

namespace tovik {

enum class [[nodiscard]] Found{no, yes, failed};

}  // namespace tovik
