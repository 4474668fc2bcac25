// Symbol export for libIMB.
//
// The library is built with hidden visibility: only declarations marked
// IMB_API (classes, functions and data) appear in libIMB.so's dynamic symbol
// table. Internal helpers live in unnamed namespaces or in imb_detail and are
// never marked.
#pragma once

#if defined(_WIN32)
#  if defined(IMB_BUILDING_LIBRARY)
#    define IMB_API __declspec(dllexport)
#  else
#    define IMB_API __declspec(dllimport)
#  endif
#else
#  define IMB_API __attribute__((visibility("default")))
#endif
