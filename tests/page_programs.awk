# Writes each C++ program of a page to a file of its own in `dir`, named by the comment in its first
# line ("// name.cpp"), and prints the names.
/^```cpp/ { inside = 1; name = ""; next }
/^```/ { inside = 0; next }
inside && name == "" {
    name = $2
    sub(/\.cpp$/, "", name)
    file = dir "/" name ".cpp"
    printf "" > file
    print name
}
inside { print >> file }
