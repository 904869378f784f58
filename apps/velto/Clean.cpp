#include "Clean.h"

#include "base/Text.h"

namespace velto {

std::string clean(std::string_view text)
{
    return qz::visible_line(text);
}

} // namespace velto
