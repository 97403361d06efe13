# Every library that the programs stand on; packaging/debian-packages.txt names the Debian packages.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Boost 1.81 REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(CURL REQUIRED)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_package(tl-expected REQUIRED)
find_package(simdjson REQUIRED)
find_package(ICU 72 REQUIRED COMPONENTS uc i18n)

pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(RAPIDJSON REQUIRED IMPORTED_TARGET RapidJSON)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)
pkg_check_modules(XXHASH REQUIRED IMPORTED_TARGET libxxhash)
pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips-cpp)
pkg_check_modules(AV REQUIRED IMPORTED_TARGET libavformat libavcodec libswscale libavutil)
pkg_check_modules(EXEMPI REQUIRED IMPORTED_TARGET exempi-2.0)
pkg_check_modules(MOUNT REQUIRED IMPORTED_TARGET mount)
pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)

# What the two lowest floors stand on; libvornex, which holds their objects, needs the same.
set(VORNEX_FOUNDATION_LIBRARIES
    fmt::fmt tl::expected Threads::Threads spdlog::spdlog PkgConfig::PLIST PkgConfig::RAPIDJSON OpenSSL::Crypto
    ICU::i18n ICU::uc)
set(VORNEX_PLATFORM_LIBRARIES
    PkgConfig::VIPS PkgConfig::AV PkgConfig::EXEMPI PkgConfig::MOUNT PkgConfig::UDEV PkgConfig::XXHASH)

if(VORNEX_TESTS)
  find_package(GTest REQUIRED)
endif()
if(VORNEX_BENCH)
  find_package(benchmark REQUIRED)
endif()
