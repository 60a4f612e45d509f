# The options of a build, and the compiler settings that every target shares.

option(QV_TESTS "Build the tests" ON)
option(QV_BENCH "Build the benchmarks" OFF)
option(QV_REPLAY "Build a test of each fuzz target, which runs its stored inputs" OFF)
option(QV_UNITY "Compile several sources of a room, or of a test, at a time" ON)
set(QV_TEST_OBJECTS "" CACHE PATH
    "Another build's folder, whose objects of the tests are linked instead of being compiled again")
option(QV_FUZZ "Build the fuzz targets (Clang only)" OFF)
set(QV_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
set(QV_SANITIZED 0) # for code that has to know
if(QV_SANITIZE)
  set(QV_SANITIZED 1)
endif()
set(QV_ANCHOR_DIR "/etc/qvcatalog/anchors.d" CACHE PATH
    "Folder of the trust anchors; fixed at build time, never at run time")
set(QV_SOCKET_PATH "/run/com.larkwen.qvcatalog.helper.sock" CACHE PATH
    "Where the service listens and clients look for it")
set(QV_RESOURCE_DIR "${CMAKE_INSTALL_FULL_DATADIR}/qvcatalog" CACHE PATH
    "Folder of the tables of localized strings")
set(QV_STATE_DIR "/var/lib/qvcatalog" CACHE PATH
    "Folder of what the service keeps: the store of trusted programs")
set(QV_ARCHIVE_TOOL "${CMAKE_INSTALL_FULL_LIBEXECDIR}/qvcatalog/QVCatalogArchiver" CACHE PATH
    "Program that unpacks an archive: -kx - FOLDER, with the archive on its standard input")
set(QV_DISK_IMAGE_TOOL "${CMAKE_INSTALL_FULL_LIBEXECDIR}/qvcatalog/QVCatalogImager" CACHE PATH
    "Program that attaches and detaches disk images")
set(QV_ROOT_COMMAND "${CMAKE_INSTALL_FULL_LIBEXECDIR}/qvcatalog/root/QVCatalogCommand" CACHE PATH
    "What `qvcatalog setup` makes: the command as a client of the service, in a folder for root alone")
set(QV_VOLUMES_DIR "/Volumes" CACHE PATH "Folder in which disk images are mounted")
set(QV_IMAGES_DIR "/run/qvcatalog/images" CACHE PATH
    "Folder of what is known of attached disk images; emptied when the machine starts")
set(QV_SEVEN_ZIP "/usr/bin/7zz" CACHE PATH "Program 7zz of 7-Zip, below /usr, which reads disk images")
set(QV_CLIENT_GROUP "_qvclient" CACHE STRING
    "Group, by name or number, that installed clients are set-group-id to; it has no members")
set(QV_AUTHORIZED_CLIENTS "anchor apple generic and identifier \"com.larkwen.QVCatalogHelper\" and (certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */ or certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = T4KQ8ZP3WM)"
  CACHE STRING "Code requirement of the clients that the service is built for, or: never")
set(QV_JOURNAL_SOCKET "/run/systemd/journal/socket")
set(QV_SYSLOG_SOCKET "/dev/log")
option(QV_DEVELOPMENT
  "A developer's build: its own socket, and the development authority of the build tree as anchor" OFF)
set(QV_DEVELOPMENT_FOLDER "") # the only folder below which a developer's build serves
if(QV_DEVELOPMENT)
  set(QV_DEVELOPMENT_FOLDER "${CMAKE_BINARY_DIR}")
  set(QV_ANCHOR_DIR "${CMAKE_BINARY_DIR}/identity/anchors.d")
  set(QV_SOCKET_PATH "${CMAKE_BINARY_DIR}/run/helper.sock")
  set(QV_STATE_DIR "${CMAKE_BINARY_DIR}/state")
  set(QV_ARCHIVE_TOOL "${CMAKE_BINARY_DIR}/bin/QVCatalogArchiver")
  set(QV_DISK_IMAGE_TOOL "${CMAKE_BINARY_DIR}/bin/QVCatalogImager")
  set(QV_VOLUMES_DIR "${CMAKE_BINARY_DIR}/Volumes")
  set(QV_IMAGES_DIR "${CMAKE_BINARY_DIR}/run/images")
  set(QV_JOURNAL_SOCKET "${CMAKE_BINARY_DIR}/run/journal.sock")
  set(QV_SYSLOG_SOCKET "${CMAKE_BINARY_DIR}/run/log.sock")
  set(QV_CLIENT_GROUP 47110) # a number that no group need have
endif()

cmake_path(GET QV_ANCHOR_DIR PARENT_PATH QV_CLIENTS_DIR)
string(APPEND QV_CLIENTS_DIR "/clients.d") # files NAME.requirement: further clients that are allowed

# The bundle information list, which the service carries and the command reads.
set(QV_INFO_PLIST "${CMAKE_BINARY_DIR}/Info.plist")

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # A fifth of the time of the usual one, which does not mind either when a version script names what
  # the compiler has left out.
  add_link_options(-fuse-ld=lld -Wl,--undefined-version)
endif()

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

find_program(QV_CCACHE ccache)
if(QV_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER "${QV_CCACHE}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${QV_CCACHE}")
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    -Wcast-qual -Wformat=2 -Wundef)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
                    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
                    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
option(QV_WERROR "Treat warnings as errors" ON)
if(QV_WERROR)
  add_compile_options(-Werror)
endif()

# Options that harden every program that may run as root.
add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)


# The options for the system's own code, beyond those for tests: see qv_room.
set(QV_ROOM_OPTIONS)
set(QV_ROOM_LINK_OPTIONS)
if(QV_SANITIZE)
  set(QV_ROOM_OPTIONS -fsanitize=${QV_SANITIZE} -fno-omit-frame-pointer)
  set(QV_ROOM_LINK_OPTIONS -fsanitize=${QV_SANITIZE})
  if(QV_SANITIZE MATCHES "address")
    # These programs have up to 800,000 addresses in their data; one at a fixed place need not relocate
    # them at each start.
    list(APPEND QV_ROOM_LINK_OPTIONS $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>)
  endif()
  if(QV_SANITIZE MATCHES "fuzzer" AND QV_TESTS)
    # A short run is led by counters and comparisons; the rest is for the figures of a long one.
    list(APPEND QV_ROOM_OPTIONS -fno-sanitize-coverage=pc-table,stack-depth)
  endif()
  if(QV_SANITIZE MATCHES "undefined")
    # The check of virtual tables opens a pipe to look at memory, and takes the lack of descriptors,
    # which tests bring about, for a fault.
    list(APPEND QV_ROOM_OPTIONS -fno-sanitize-recover=undefined -fno-sanitize=vptr)
  endif()
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  set(QV_ROOM_OPTIONS -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

find_package(PkgConfig REQUIRED)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-i18n icu-uc)
pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)
pkg_check_modules(ARCHIVE REQUIRED IMPORTED_TARGET libarchive)
pkg_check_modules(BLKID REQUIRED IMPORTED_TARGET blkid)
pkg_check_modules(DEFLATE REQUIRED IMPORTED_TARGET libdeflate)
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
find_package(fmt REQUIRED)
find_package(tl-expected REQUIRED)
