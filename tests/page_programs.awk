# Writes each C++ program of the pages to its own file in `dir`, named by the comment in its first
# line ("// name.cpp"), and prints the names. The text block after a program is its expected output,
# in name.out.
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
