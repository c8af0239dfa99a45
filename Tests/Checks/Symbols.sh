# Holds what the shared library exports against the list in the tree, and its file names against its version.

symbolList=Tests/ExportedSymbols.txt
library=Build/release/Source/libVok2.so

step_symbols() {
    build_library || return 0
    check symbols-exported compare_symbols
    check symbols-soname compare_soname
}

update_symbols() {
    build_library || return 1
    exported_symbols "$library" >"$symbolList"
    echo "$symbolList now lists $(wc -l <"$symbolList") symbols. Read the difference before you commit it."
}

exported_symbols() {
    nm --dynamic --defined-only --demangle "$1" | cut -d ' ' -f 3- | LC_ALL=C sort -u
}

compare_symbols() {
    local actual=Build/ExportedSymbols.txt
    exported_symbols "$library" >"$actual"
    if diff --unified=0 "$symbolList" "$actual" >"$actual.diff"; then
        return 0
    fi
    grep '^[-+]' "$actual.diff" || echo "$symbolList can't be compared"
    echo "The lines with + are exported and not in $symbolList, those with - are listed and no longer exported."
    echo "If that is meant, ./test --update-symbols writes the list anew."
    return 1
}

# VERSION A.B.C of the project gives the soname libVok2.so.A and the file libVok2.so.A.B.C.
compare_soname() {
    local version soname
    version=$(project_version)
    soname=$(readelf --dynamic "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
    echo "version $version, soname $soname, file $(readlink --canonicalize "$library")"
    [[ $soname == "libVok2.so.${version%%.*}" && -f $library.$version && $library -ef $library.$version ]]
}
