// velto-server: runs and administers one server.

#include "CommandLine.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv)
{
    try {
        return static_cast<int>(velto::CommandLine().run(argc, argv));
    } catch (const velto::CommandError& error) {
        std::cerr << "velto-server: " << error.what() << "\n";
        return static_cast<int>(error.code());
    } catch (const std::exception& error) {
        std::cerr << "velto-server: " << error.what() << "\n";
        return static_cast<int>(velto::Exit::Failed);
    }
}
