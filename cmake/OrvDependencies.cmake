# Every dependency is a Debian package, installed by scripts/install-deps.sh.

find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBMODBUS REQUIRED IMPORTED_TARGET GLOBAL libmodbus)
pkg_check_modules(CXXTOOLS REQUIRED IMPORTED_TARGET GLOBAL cxxtools)
pkg_check_modules(LIBSYSTEMD REQUIRED IMPORTED_TARGET GLOBAL libsystemd)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(Boost REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
