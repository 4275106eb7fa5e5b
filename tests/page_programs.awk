# Writes each C++ program of the pages to a file of its own in `dir`, named by the comment in its
# first line ("// name.cpp"), and prints the names. The text block behind a program is what it prints.
/^```cpp/ { inside = 1; name = ""; next }
/^```text/ && name != "" && !inside { output = 1; next }
/^```/ {
    if (output)
        name = ""
    inside = output = 0
    next
}
inside && name == "" {
    name = $2
    sub(/\.cpp$/, "", name)
    file = dir "/" name ".cpp"
    printf "" > file
    printf "" > (dir "/" name ".out")
    print name
}
inside { print >> file }
output { print >> (dir "/" name ".out") }
