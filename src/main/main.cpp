#include "main/daemon.hpp"

int main() {
    return xpon::log_config::run_daemon();
}
