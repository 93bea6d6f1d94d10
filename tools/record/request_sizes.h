// How each request of the camera's character devices passes its argument: the bytes of the record
// behind the pointer, or 0 when the argument is the value itself. The drivers' request numbers do
// not say it reliably (the lens-motor status request encodes 4 bytes and fills 24), so the sizes
// come from the library's own device table, one row per request.
#pragma once

#include <cstddef>

namespace record
{

// Bytes behind the pointer of this request; 0: passed by value (so are requests no driver of the
// camera knows: reading behind an unknown pointer could fault).
size_t request_size(unsigned long request);

} // namespace record
