# Programs outside the tree: an installed package that was moved is found through CMake and pkg-config, and the tree is
# added to another build, as a static library too. The program in README.md is built exactly as it stands there, and
# prints what it says there.

step_consumer() {
    local work prefix
    work=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-consumer.XXXXXX")
    prefix=$work/moved
    if consumer_prepare "$work" "$prefix"; then
        check consumer-cmake consumer_cmake "$work" find "-DCMAKE_PREFIX_PATH=$prefix"
        check consumer-pkg-config consumer_pkg_config "$work" "$prefix"
        check consumer-add-subdirectory consumer_cmake "$work" add "-DVOK2_TREE=$PWD"
        check consumer-static consumer_static "$work"
    else
        count_failed 1 "consumer: installing"
    fi
    rm -rf "$work"
}

consumer_prepare() {
    local work=$1 prefix=$2
    consumer_sources "$work"
    build_library &&
        logged consumer-install cmake --install Build/release --prefix "$work/installed" &&
        mv "$work/installed" "$prefix"
}

consumer_sources() {
    cp -R Tests/Consumer "$1/source"
    block_of_readme cpp >"$1/source/Readme.cpp"
}

consumer_cmake() {
    cmake -S "$1/source" -B "$1/$2" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ "${@:3}" &&
        cmake --build "$1/$2" &&
        "$1/$2/Consumer" &&
        says_what_readme_says "$1/$2/Readme"
}

consumer_static() {
    consumer_cmake "$1" static "-DVOK2_TREE=$PWD" -DVOK2_STATIC=ON || return
    ldd "$1/static/Consumer"
    ! ldd "$1/static/Consumer" | grep --quiet libVok2
}

consumer_pkg_config() {
    export PKG_CONFIG_PATH=$2/lib/pkgconfig
    export LD_LIBRARY_PATH=$2/lib
    local flags program
    pkg-config --exists --print-errors 'Vok2 >= 2.0' || return
    read -ra flags < <(pkg-config --cflags --libs Vok2)
    for program in Consumer Readme; do
        g++ -std=c++20 "$1/source/$program.cpp" "${flags[@]}" -o "$1/$program" || return
    done
    "$1/Consumer" && says_what_readme_says "$1/Readme"
}

# The first block of that language in README.md.
block_of_readme() {
    awk -v fence="\`\`\`$1" '/^```/ { inside = !inside && $0 == fence && !seen++; next } inside' README.md
}

says_what_readme_says() {
    "$1" | sed 's/cpp([0-9]*)/cpp(...)/' | diff <(block_of_readme text) -
}
