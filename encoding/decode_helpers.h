// Exported decode helpers: <name>_alloc unpacks a blob into a new message (null for a
// malformed blob); <name>_free releases it. Plain C names: apps bind to them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "vqfe_results.pb-c.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) \
    Message* name##_alloc(const uint8_t* data, size_t length);         \
    void name##_free(Message* message);
#define VQFE_RESULT_KIND_ALIAS(...)
#include "encoding/result_kinds.def"

#ifdef __cplusplus
}
#endif
