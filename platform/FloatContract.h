// Include first in every file whose float arithmetic must round each
// operation separately: it stops the compiler from fusing a multiply and an
// add into one instruction (which rounds once and changes results at halves).
// The conversion rules are defined operation by operation, on every processor.
#pragma once

#if defined(__clang__)
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
#endif
