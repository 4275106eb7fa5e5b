# SPDX-License-Identifier: LicenseRef-Tarnix
# Writes each C++ program of the pages and of the public headers to its own file in `dir`, the name
# of its test with .cpp, and its expected output to the same name with .out. Prints the names.
#
# In a page, a program is a block that begins with "// name.cpp"; the text block after it is its
# expected output. In a header, it is each @code block that begins a line: the lines after the includes
# become the body of main, and a comment "// prints TEXT" gives a line of the expected output.
function start(test) {
    name = test
    file = dir "/" name ".cpp"
    expected = dir "/" name ".out"
    printf "" > file
    printf "" > expected
    print name
}

FILENAME ~ /\.h$/ {
    if (/^\/\/\/ @code/) {
        header = FILENAME
        gsub(/.*\/|\.h$/, "", header)
        count[header]++
        start("header_" header (count[header] > 1 ? "_" count[header] : ""))
        example = 1
        body = 0
    } else if (/^\/\/\/ @endcode/) {
        print "}" > file
        example = 0
    } else if (example) {
        sub(/^\/\/\/ ?/, "")
        if (!body && !/^(#include|$)/) {
            body = 1
            print "int main()\n{" > file
        }
        print > file
        if (sub(/.*\/\/ prints /, ""))
            print > expected
    }
    next
}

/^```cpp/ { inside = 1; name = ""; next }
/^```text/ && name != "" && !inside { output = 1; next }
/^```/ {
    if (output)
        name = ""
    inside = output = 0
    next
}
inside && name == "" {
    sub(/\.cpp$/, "", $2)
    start("page_" $2)
}
inside { print > file }
output { print > expected }
