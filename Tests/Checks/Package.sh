# The Debian packages: what they are called, hold and need, and that a program outside the tree can be built with them
# where they are unpacked.
step_package() {
    local work
    work=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-package.XXXXXX")
    rm -f Build/package/*.deb
    if logged package-configure cmake --preset package &&
        (umask 077 && logged package-build cmake --build --preset package); then
        check package-contents package_contents "$work/root"
        check package-dependencies package_dependencies
        consumer_sources "$work"
        check package-consumer consumer_cmake "$work" build "-DCMAKE_PREFIX_PATH=$work/root/usr"
    else
        count_failed 1 "package: building"
    fi
    rm -rf "$work"
}

package_file() {
    echo "Build/package/$1_$(project_version)_$(dpkg --print-architecture).deb"
}

# Unpacks both, one over the other. The first is the library alone.
package_contents() {
    local libraries library file
    libraries=/usr/lib/$(dpkg-architecture --query DEB_HOST_MULTIARCH)
    library=$libraries/libVok2.so.$(project_version)
    dpkg-deb --extract "$(package_file libvok2)" "$1" || return
    diff <(find "$1" ! -type d -printf '/%P\n' | LC_ALL=C sort) <(printf '%s\n' "${library%.*.*}" "$library") || return
    dpkg-deb --extract "$(package_file libvok2-dev)" "$1" || return
    diff <(cd "$1/usr/include" && headers .) <(cd Include && headers . ../Platform/Include) || return
    for file in "$libraries/cmake/Vok2/Vok2Config.cmake" "$libraries/pkgconfig/Vok2.pc" \
        "/usr/share/gdb/auto-load$library-gdb.py"; do
        [[ -f $1$file ]] || { echo "libvok2-dev has no $file"; return 1; }
    done
    [[ $1$libraries/libVok2.so -ef $1$library && -z $(find "$1/usr" -type d ! -perm 755) ]]
}

headers() {
    find "$@" -name '*.h' -printf '%P\n' | LC_ALL=C sort
}

package_dependencies() {
    local needed package
    needed=$(dpkg-deb --field "$(package_file libvok2)" Depends)
    echo "libvok2 needs $needed"
    for package in libc6 libfmt9 libstdc++6; do
        [[ ", $needed" == *", $package (>= "* ]] || return
    done
    needed=$(dpkg-deb --field "$(package_file libvok2-dev)" Depends)
    echo "libvok2-dev needs $needed"
    [[ $needed == "libvok2 (= $(project_version)), libfmt-dev" ]]
}
