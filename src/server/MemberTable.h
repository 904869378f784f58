// The members of Main as data: one table from which scripts, automation and tests reach them by name.
#pragma once

#include "server/Main.h"
#include "server/Variant.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qz::server {

struct Parameter {
    std::string_view name;
    /// The value of an argument that is left out; a parameter without one is required.
    Variant fallback = {};
    ValueType type = ValueType::Empty; // these two follow from the member's declaration
    bool by_reference = false;

    bool optional() const { return !std::holds_alternative<std::monostate>(fallback); }
};

struct Member {
    std::string_view name;
    std::vector<Parameter> parameters;
    ValueType result = ValueType::Empty;
    /// Calls the member. There must be one argument of the right type for each parameter; those by reference
    /// are written back. Texts are made valid UTF-8 first.
    std::function<Variant(Main&, std::vector<Variant>&)> call;

    std::size_t required_arguments() const;
    /// "set_ServerCommand(CommandToSend: BSTR, [Parameters: BSTR = ""])", "get_ListeningPort() -> UI2".
    std::string signature() const;
};

/// All public members, in the order of the class.
std::span<const Member> main_members();

/// The member of this name, letter case aside; none when there is no such member.
const Member* find_member(std::string_view name);

} // namespace qz::server
