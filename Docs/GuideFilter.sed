# What Doxygen has to be told otherwise of the guide.

# In tables a backslash outside of code is no command.
:backslash
/^|/s/^\(\([^`]*`[^`]*`\)*[^`]*[^`\\]\)\\\([a-z]\)/\1\\\\\3/
t backslash

# It finds no headings.
s|](\([A-Z][^)#]*\)#[^)]*)|](\1)|g
s|\[\([^]]*\)\](#[^)]*)|\1|g

# Pages by the names that it gives them, as its own links to them break in a directory whose path has a blank.
s|](README\.md)|](index.html)|g
s|](\([A-Z][A-Za-z-]*\)\.md)|](md_Docs_\1.html)|g
:dash
s|](md_Docs_\([A-Za-z_]*\)-|](md_Docs_\1_|
t dash

# Headers have pages; the other files are in the tree.
s|\[`\([^]`]*\)`\](\.\./Include/[^)]*)|\1|g
s|](\.\./|](../../|g

# It takes ** in front of code for stars.
s|\*\*\(`[^*]*\)\*\*|<b>\1</b>|g
