SUMMARY = "Common ground of a storage server's daemons and tools"
DESCRIPTION = "Exceptions with a traceback, logging, threads, streams, XML messages, child processes and plug-ins; and \
volumed, a volume service that shows them at work, with its client."
SECTION = "libs"
# The owner has chosen no licence. CLOSED is what a recipe says then; it is no choice of one.
LICENSE = "CLOSED"

DEPENDS = "boost sqlite3 xerces-c"

# Nobody serves the sources at this address: name your own, or set EXTERNALSRC.
TOVUUTIL_GIT ?= "git://git.example.invalid/libtovuutil.git;protocol=https;branch=main"
SRC_URI = "${TOVUUTIL_GIT} file://run-ptest"
SRCREV ?= "${AUTOREV}"
PV = "0.1.0+git"
S = "${WORKDIR}/git"

inherit cmake pkgconfig ptest systemd useradd

# The programs that need nothing but themselves: what the others start and load stands in the folder they were built in.
TOVUUTIL_PTESTS = "DirectoryTest ExceptionTest FileHandleStreamTest FileLoggerTest FileStreamTest FormatTest GUIDTest \
    JobQueueTest LoggerMgrTest LoggerTest MessageFramingTest MessageProcessorTest MessageWriterTest MutexTest OwnerListTest \
    PathTest PipeTest RandomSeekStreamTest SingletonTest SocketAddressTest StatusParamsTest StreamReaderTest \
    StreamSelectorTest StreamTest StreamWriterTest ThreadTest XercesUtilsTest"

# Only what is named is built, and no test is run to see what is in it.
OECMAKE_TARGET_COMPILE = "tovuutil uptime volumectl volumed"
EXTRA_OECMAKE = "-DVOLUMED_UNIT_FOLDER=${systemd_system_unitdir} -DTOVUUTIL_TEST_WHOLE_PROGRAMS=ON \
    -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON -DCMAKE_SKIP_BUILD_RPATH=ON"
PACKAGECONFIG ??= "${@bb.utils.contains('PTEST_ENABLED', '1', 'tests', '', d)}"
PACKAGECONFIG[tests] = "-DTOVUUTIL_BUILD_TESTS=ON,-DTOVUUTIL_BUILD_TESTS=OFF,googletest"

do_install:append() {
    install -d ${D}${sysconfdir}/default
    install -m 0644 ${S}/packaging/volumed/default/volumed ${D}${sysconfdir}/default/volumed
}

do_compile_ptest() {
    cmake_runcmake_build --target ${TOVUUTIL_PTESTS}
}

do_install_ptest() {
    for program in ${TOVUUTIL_PTESTS}; do
        install -m 0755 ${B}/tests/$program ${D}${PTEST_PATH}
    done
}

PACKAGES =+ "${PN}-volumed ${PN}-volumectl"
FILES:${PN}-volumed = "${sbindir}/volumed ${libdir}/volumed ${systemd_system_unitdir}/volumed.service \
    ${sysconfdir}/default/volumed"
CONFFILES:${PN}-volumed = "${sysconfdir}/default/volumed"
FILES:${PN}-volumectl = "${bindir}/volumectl"
FILES:${PN}-dev += "${datadir}/gdb"

SYSTEMD_PACKAGES = "${PN}-volumed"
SYSTEMD_SERVICE:${PN}-volumed = "volumed.service"
USERADD_PACKAGES = "${PN}-volumed"
USERADD_PARAM:${PN}-volumed = "--system --user-group --home-dir /var/lib/volumed --no-create-home --shell /bin/false volumed"
