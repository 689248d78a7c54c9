/* The record interface of the Tovik database engine: what there is of it without a database. Compiles as C11
 * and as C++. */
#ifndef TOVIK_H
#define TOVIK_H

#include <stdint.h>

#include "tovik_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* As kld_api_init (kld_api.h), with HVI_TRAN_FILE_REUSE=ON set unless params says otherwise. params: at most
 * 487 characters. Result: 0; -1 with 112012 (params too long) or the codes of kld_api_init. */
TOVIK_API int tovik_init(const char *params);

/* The same as kld_api_end. */
TOVIK_API void tovik_end(void);

/* The code of the first failure of the calling thread's last record-interface call, 0 after one that
 * succeeded. */
TOVIK_API int32_t tovik_geterr(void);

/* Writes the calling thread's error record as text lines into buffer (size bytes, cut to fit), or prints it
 * to standard output when buffer is null. */
TOVIK_API void tovik_geterrinfo(char *buffer, int size);

#ifdef __cplusplus
}
#endif

#endif
