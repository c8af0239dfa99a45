# The pages of headers and guide, in Build/Doxygen. Doxygen fails for a public entry without a comment, and for a
# comment that it doesn't understand.

step_doxygen() {
    rm -rf Build/Doxygen
    check doxygen doxygen Docs/Doxyfile
}
