// Asio's own code, compiled once for the whole program.
#include <utility> // Asio 1.74 uses std::exchange without including it

#include <boost/asio/impl/src.hpp>
