#include "protocol/Handlers.h"

#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

void Handlers::echo(const Request& request)
{
    sender_.SendData(request.socket, helpers::protocol_keywords().Echo, "");
}

} // namespace qz::protocol
