#include "command_line.hpp"

int main(int argc, char** argv) {
    return xpon::logctl::run(argc, argv);
}
