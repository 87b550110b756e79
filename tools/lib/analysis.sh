# shellcheck shell=bash
# What looks for mistakes in the sources, and in the tests while they run. Sourced behind common.sh, not run. Each
# function says what it looks at and how much it found, and fails when that is anything; memcheck returns 1, so that its
# results can be counted. A finding that is wrong is silenced at its line, with the reason.

# The headers come with the sources that include them.
analysed_sources() { git ls-files 'src/*.cpp' 'examples/*.cpp'; }

# Shows the findings in a log, where one in a header may come with several sources, and fails unless there are none and
# the analyser itself went well: NAME STATUS PATTERN LOG
report_findings() {
    local name=$1 status=$2 pattern=$3 log=$4 found
    found=$(grep -E "$pattern" "$log" | sort -u | grep -c .) || true
    say "  $name: $found findings"
    [ "$found" -gt 0 ] || [ "$status" -ne 0 ] || return 0
    cat "$log" >&2
    fail "$name has something to say"
}

# One source at a time for each processor, and the largest first, so that none is left alone with a long one at the end.
check_tidy() {
    local sources log=build/tidy.log status=0
    mapfile -t sources < <(analysed_sources | xargs ls -S)
    say "checking ${#sources[@]} sources of the library and the examples with clang-tidy"
    quietly cmake --preset dev
    printf '%s\n' "${sources[@]}" | xargs -P 2 -n 1 clang-tidy -p build/dev --quiet >"$log" 2>/dev/null || status=$?
    report_findings clang-tidy "$status" '(warning|error): .*\[' "$log"
}

# Twice, for the sizes of numbers on a PC and for those of the target, where char has no sign as well.
check_cppcheck() {
    local sources platform log=build/cppcheck.log status=0
    mapfile -t sources < <(analysed_sources)
    say "checking ${#sources[@]} sources of the library and the examples with cppcheck, for 64 and for 32 bits"
    : >"$log"
    for platform in unix64 arm32-wchar_t4; do
        cppcheck -j 2 --quiet --language=c++ --std=c++14 --platform="$platform" --library=posix,boost,gnu \
            -Iinclude -Isrc/util -Iexamples --enable=warning,style,performance,portability --inline-suppr \
            --error-exitcode=1 --template='{file}:{line}: {severity}: {message} [{id}]' "${sources[@]}" 2>>"$log" ||
            status=$?
    done
    report_findings cppcheck "$status" '\[[a-zA-Z]+\]$' "$log"
}

# The analyser of g++ 12 does not see what a function writes into the object that it returns, and takes each use of such
# an object for one of an uninitialised value. It has no name for that value then; one that has a name is a finding.
check_analyzer() {
    local sources log=build/analyzer.log status=0
    mapfile -t sources < <(git ls-files 'src/*.cpp' | xargs ls -S)
    say "checking ${#sources[@]} sources of the library with g++ -fanalyzer"
    printf '%s\n' "${sources[@]}" | LC_ALL=C xargs -P 2 -n 1 g++ -std=c++14 -fPIC -Iinclude -Isrc/util -O0 \
        -fanalyzer -fdiagnostics-path-format=none -c -o /dev/null >"$log" 2>&1 || status=$?
    sed -i "/warning: use of uninitialized value '<unknown>'/d" "$log"
    report_findings "g++ -fanalyzer" "$status" 'warning: |error: ' "$log"
}

# Runs one test program: PROGRAM
#
# The child processes of a test are watched as well, until they become another program; one with an error ends with the
# same code and so fails its test. The C library is not made to free what it keeps at the end: it would write out
# streams that a child must not. A test's own operator new is left in its place.
memcheck_program() {
    local program=$1 name
    name=build/memcheck/$(basename "$1")
    timeout 600 valgrind --quiet --vgdb=no --fair-sched=try --num-callers=40 --error-exitcode=99 \
        --leak-check=full --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
        --suppressions=tools/lib/memcheck.supp --run-libc-freeres=no --soname-synonyms=somalloc=nouserintercepts \
        --log-file="$name.log" "$program" --gtest_output="xml:$name.xml" >"$name.out" 2>&1 </dev/null ||
        printf '%s\n' "$?" >"$name.failed"
}

# Runs the tests of the preset dev, which is built, under memcheck; the largest programs first. What became of each test
# is in build/memcheck/results.xml, written like those of ctest, also where this returns 1 for an error or a failure.
run_memcheck() {
    local programs failed errors
    mapfile -t programs < <(find build/dev/tests -maxdepth 1 -name '*Test' -type f -executable -print0 |
        xargs -0 -r ls -S)
    [ ${#programs[@]} -gt 0 ] || fail "the preset dev has no test programs yet"
    say "running ${#programs[@]} test programs under memcheck"
    rm -rf build/memcheck
    mkdir -p build/memcheck
    export -f memcheck_program
    # shellcheck disable=SC2016  # the inner shell's own argument
    printf '%s\n' "${programs[@]}" | xargs -P 2 -n 1 bash -c 'memcheck_program "$0"'
    tools/lib/program-results memcheck build/memcheck "${programs[@]}" >build/memcheck/results.xml ||
        fail "memcheck left no results"
    failed=$(find build/memcheck -name '*.failed' -printf '%f ')
    errors=$(cat build/memcheck/*.log | grep -cE '^==[0-9]+== [^ ]') || true
    say "  memcheck: $errors errors"
    [ -n "$failed" ] || return 0
    grep -hE -A 20 '^==[0-9]+== [^ ]' build/memcheck/*.log | head -n 200 >&2 || true
    say "  FAILED: ${failed//.failed/}; see build/memcheck/PROGRAM.log and PROGRAM.out"
    return 1
}
