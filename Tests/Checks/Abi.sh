# Holds the binary interface of the library against the one on record, that of the build before: a program that was
# linked with that must run with this one. What is new is told and is no failure.
#
# Types of the C++ library and of fmt are part of it, so a record is for one kind of machine and compiler. Not held are
# what leaves no trace in the library's debug information: macros, default arguments, inline functions and classes that
# it doesn't use itself, and structures that are passed as void*.

step_abi() {
    local record
    record=$(abi_record)
    if [[ ! -f $record ]]; then
        echo "   not run: there is no record for this machine and compiler, $record; ./test --update-abi writes one"
        return
    fi
    if build_described_library; then
        check abi compare_abi "$record"
        [[ ! -s Build/abi/Difference.txt ]] || echo "   since the build on record: Build/abi/Difference.txt"
    fi
}

update_abi() {
    local record
    record=$(abi_record)
    build_described_library && mkdir -p "$(dirname "$record")" || return
    if [[ -f $record ]]; then
        compare_abi "$record" || true
    fi
    xz --keep --stdout Build/abi/Interface.xml >"$record"
    echo "$record is written."
}

abi_record() {
    echo "Tests/Abi/$(uname -m)-gcc$(g++ -dumpversion).abi.xz"
}

# What is described is the library with debug information, as the release has none.
build_described_library() {
    if logged abi-configure cmake --preset install -B Build/abi -DCMAKE_BUILD_TYPE=Debug &&
        logged abi-library cmake --build Build/abi --target Vok2 &&
        logged abi-describe abidw --headers-dir Include --headers-dir Platform/Include --drop-private-types \
            --no-corpus-path --no-comp-dir-path --no-show-locs --out-file Build/abi/Interface.xml \
            Build/abi/Source/libVok2.so; then
        return 0
    fi
    count_failed 1 "abi: description of the library"
    return 1
}

# abidiff's exit code is a set of bits: 4 for a difference, 8 for one that breaks programs for certain. A type that is
# laid out anew breaks them too; an enumerator more doesn't count.
compare_abi() {
    local code=0
    xz --decompress --stdout "$1" >Build/abi/Record.xml
    abidiff Build/abi/Record.xml Build/abi/Interface.xml >Build/abi/Difference.txt || code=$?
    if ((code == 0 || code == 4)) &&
        ! grep --quiet '^ *[1-9][0-9]* \(function\|variable\)s* with some .*change' Build/abi/Difference.txt; then
        cat Build/abi/Difference.txt
        return
    fi
    abidiff --leaf-changes-only Build/abi/Record.xml Build/abi/Interface.xml | head -n 40
    echo "Programs that were linked with the build on record can't run with this one. If that is meant, raise the major"
    echo "version in CMakeLists.txt, once for a release, and write the record anew with ./test --update-abi."
    return 1
}
