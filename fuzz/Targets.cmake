# The fuzz targets, found by name: fuzz/<Name>Fuzz.cpp defines `int fuzz_<name>(const std::uint8_t*, std::size_t)`
# and fuzz/corpus/<name>/ holds its seeds, <name> being <Name> in snake_case. A new target needs nothing else.
file(GLOB VELTO_FUZZ_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*Fuzz.cpp)
set(VELTO_FUZZ_CORPUS ${CMAKE_CURRENT_LIST_DIR}/corpus)

# Sets `variable` to the snake_case name of the target in `source`.
function(velto_fuzz_name source variable)
    get_filename_component(name ${source} NAME_WE)
    string(REGEX REPLACE "Fuzz$" "" name ${name})
    string(REGEX REPLACE "([a-z0-9])([A-Z])" "\\1_\\2" name ${name})
    string(TOLOWER ${name} name)
    set(${variable} ${name} PARENT_SCOPE)
endfunction()
