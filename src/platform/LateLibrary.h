// Shared libraries that are loaded when they are first needed: those that bring dozens of others along, for
// which every start of a program would pay.
#pragma once

#define BOOST_DLL_USE_STD_FS // the part of Boost that has only headers
#include <boost/dll/shared_library.hpp>

namespace qz::platform {

class LateLibrary {
public:
    /// @param file  as the system's loader looks for it: "libcurl.so.4".
    /// @throws std::system_error, in the loader's words.
    explicit LateLibrary(const char* file) : library_(file, boost::dll::load_mode::search_system_folders) { }

    /// @throws std::system_error when the library has no such function.
    template <typename Type> Type& function(const char* name) const { return library_.get<Type>(name); }

private:
    boost::dll::shared_library library_;
};

/// A function of a library that is loaded late, called as any other.
template <typename Type> class LateFunction {
public:
    /// @param library  must outlive the object.
    LateFunction(const LateLibrary& library, const char* name) : function_(library.function<Type>(name)) { }
    operator Type&() const { return function_; }

private:
    Type& function_;
};

} // namespace qz::platform
