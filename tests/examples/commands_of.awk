# awk -v folder=FOLDER -f commands_of.awk DOCUMENT: writes each command of the document's blocks of
# code (the lines that begin with "$ ") to FOLDER/NNNN.command, what stands below it to
# FOLDER/NNNN.expected, and the heading above to FOLDER/NNNN.section; NNNN is the line's number.
/^```/ {
    isCode = !isCode
    number = ""
    next
}
!isCode && /^## / {
    section = substr($0, 4)
}
isCode && /^\$ / {
    number = sprintf("%04d", NR)
    print substr($0, 3) >(folder "/" number ".command")
    printf "" >(folder "/" number ".expected")
    print section >(folder "/" number ".section")
    next
}
isCode && number != "" {
    print >(folder "/" number ".expected")
}
