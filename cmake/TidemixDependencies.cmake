find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr)
# zlib's CRC-32 checks the suffix of a firmware file.
find_package(ZLIB REQUIRED)

set(TIDEMIX_HAVE_PIPEWIRE OFF)
if(TIDEMIX_WITH_PIPEWIRE)
  pkg_check_modules(PIPEWIRE IMPORTED_TARGET libpipewire-0.3)
  if(PIPEWIRE_FOUND)
    set(TIDEMIX_HAVE_PIPEWIRE ON)
  endif()
endif()
message(STATUS "Tidemix: PipeWire backend ${TIDEMIX_HAVE_PIPEWIRE}")

# libusb-1.0 carries USB on the linux backend; without it the backend has a
# bus with no devices. umockdev lets the tests run libusb without hardware.
set(TIDEMIX_HAVE_LIBUSB OFF)
if(TIDEMIX_WITH_LIBUSB)
  pkg_check_modules(LIBUSB IMPORTED_TARGET libusb-1.0)
  if(LIBUSB_FOUND)
    set(TIDEMIX_HAVE_LIBUSB ON)
  endif()
endif()
message(STATUS "Tidemix: libusb USB bus ${TIDEMIX_HAVE_LIBUSB}")
set(TIDEMIX_HAVE_UMOCKDEV OFF)
if(TIDEMIX_HAVE_LIBUSB AND TIDEMIX_BUILD_TESTS)
  pkg_check_modules(UMOCKDEV IMPORTED_TARGET umockdev-1.0)
  if(UMOCKDEV_FOUND)
    set(TIDEMIX_HAVE_UMOCKDEV ON)
  endif()
endif()
message(STATUS "Tidemix: umockdev tests ${TIDEMIX_HAVE_UMOCKDEV}")

# libsystemd's sd-bus reaches logind (sleep, wake, idle inhibitors) and
# RealtimeKit on the linux backend; without it the backend reports no sleep or
# wake and asks the kernel alone for real-time scheduling.
set(TIDEMIX_HAVE_SYSTEMD OFF)
if(TIDEMIX_WITH_SYSTEMD)
  pkg_check_modules(SYSTEMD IMPORTED_TARGET libsystemd)
  if(SYSTEMD_FOUND)
    set(TIDEMIX_HAVE_SYSTEMD ON)
  endif()
endif()
message(STATUS "Tidemix: sd-bus (logind, RealtimeKit) ${TIDEMIX_HAVE_SYSTEMD}")

# gdk-pixbuf decodes and scales application icons; GIO reads desktop entries,
# launches them and knows the default handler of a URL scheme. Without them
# applications have no icons and count as not installed.
set(TIDEMIX_HAVE_DESKTOP OFF)
pkg_check_modules(GDKPIXBUF IMPORTED_TARGET gdk-pixbuf-2.0)
pkg_check_modules(GIOUNIX IMPORTED_TARGET gio-unix-2.0)
if(GDKPIXBUF_FOUND AND GIOUNIX_FOUND)
  set(TIDEMIX_HAVE_DESKTOP ON)
endif()
message(STATUS "Tidemix: desktop entries and icons ${TIDEMIX_HAVE_DESKTOP}")

if(TIDEMIX_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(TIDEMIX_BUILD_BENCH AND NOT TIDEMIX_ONLY_THREADED_TESTS)
  find_package(benchmark REQUIRED)
endif()
