# Libraries of the distribution. Only src/platform and src/support include their headers.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_path(RAPIDJSON_INCLUDE_FOLDER rapidjson/writer.h REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0 gio-2.0 gio-unix-2.0)
pkg_check_modules(PIXBUF REQUIRED IMPORTED_TARGET gdk-pixbuf-2.0)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(CRYPTO REQUIRED IMPORTED_TARGET libcrypto)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc icu-i18n)

add_library(kavaro_deps INTERFACE)
target_link_libraries(kavaro_deps INTERFACE
  PkgConfig::GLIB PkgConfig::PIXBUF PkgConfig::PLIST PkgConfig::ICU PkgConfig::CRYPTO spdlog::spdlog fmt::fmt Threads::Threads)
