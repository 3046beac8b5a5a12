# floors.awk: prints every include that runs up. Reads the names of all sources from standard input,
# as paths below the project's folder, in which it runs.
#
# An area is a folder with a rank. A file may include what is of a lower rank, and what is of its
# own area: folders of one rank are neighbours that know nothing of each other.

BEGIN {
    # From the ground up.
    Area("foundation/qel", 1)
    Area("foundation/qor", 2)
    Area("foundation/zuv", 3)
    Area("platform/include", 4)
    Area("platform/linux", 5)
    Area("include", 6)
    Area("library/idl", 7)
    Area("library/zor_ipc/source/common", 8)
    Area("library/common_utils", 9)
    Area("library/tree_json", 9)
    Area("library/zor_ipc/source/proxy", 10)
    Area("programs/shared", 11)
    Area("programs/service", 12)
    Area("programs/zamctl", 12)
    Area("kit", 13)
    Area("tests", 14)
    Area("benchmarks", 15)
    Area("examples", 15)
    Area("tests/benchmarks", 16)

    # Who may know the operating system beyond the seam.
    Knows("platform/linux", "programs/service")
    Knows("platform/linux", "tests")
    Knows("platform/linux", "benchmarks")
}

function Area(folder, rank) {
    rankOf[folder] = rank
}

function Knows(folder, who) {
    restricted[folder] = 1
    allowed[folder, who] = 1
}

# The area of a file: the longest folder that it is in.
function AreaOf(file,    folder) {
    folder = file
    while (sub("/[^/]*$", "", folder)) {
        if (folder in rankOf) {
            return folder
        }
    }
    return ""
}

# The name by which a header is included from elsewhere: what follows its include or source folder.
function NameOf(file,    name) {
    name = file
    if (name ~ "^tests/") {
        sub("^tests/", "", name)
    } else if (name ~ "/include/" || name ~ "^include/") {
        sub("^(.*/)?include/", "", name)
    } else {
        sub("^.*/source/", "", name)
    }
    return name
}

{
    files[++count] = $0
    exists[$0] = 1
    if ($0 ~ "[.]h$") {
        name = NameOf($0)
        found[name] = (name in found) ? found[name] " " $0 : $0
    }
}

# The file that an include names: beside the including file, or under a name of its own.
function Resolve(file, name,    folder, candidates, number, i, best) {
    folder = file
    sub("/[^/]*$", "", folder)
    if ((folder "/" name) in exists) {
        return folder "/" name
    }
    number = split(found[name], candidates, " ")
    best = ""
    for (i = 1; i <= number; ++i) {
        # Equal names in two areas: the own one is meant.
        if (best == "" || AreaOf(candidates[i]) == AreaOf(file)) {
            best = candidates[i]
        }
    }
    return best
}

# Whether zamctl may include a file: what is installed, and what the programs share. It stands
# for all clients: what it needs and does not find there, they would miss as well.
function IsForClients(file) {
    return file ~ "^(include|platform/include|foundation/(qel|zuv)/include|library/tree_json/include)/" ||
        file == "foundation/qor/include/qor/types/timestamp.h" ||
        file ~ "^programs/(shared|zamctl)/"
}


function Refuse(file, line, name, why) {
    printf "%s:%d: includes \"%s\", %s\n", file, line, name, why
    ++refused
}

END {
    for (i = 1; i <= count; ++i) {
        file = files[i]
        own = AreaOf(file)
        if (own == "") {
            printf "%s: stands on no floor\n", file
            ++refused
            continue
        }
        line = 0
        while ((getline text < file) > 0) {
            ++line
            if (text !~ "^[ \t]*#[ \t]*include[ \t]*\"") {
                continue
            }
            name = text
            sub("^[^\"]*\"", "", name)
            sub("\".*$", "", name)
            target = Resolve(file, name)
            if (target == "") {
                # Made by the build, or a header of somebody else's.
                if (own != "tests" && own != "benchmarks") {
                    Refuse(file, line, name, "which is nowhere")
                }
                continue
            }
            ++includes
            other = AreaOf(target)
            if (other != own && rankOf[other] >= rankOf[own]) {
                Refuse(file, line, name, "which runs up: " own " stands below or beside " other)
            } else if (other != own && restricted[other] && !((other, own) in allowed)) {
                Refuse(file, line, name, "which is " other "'s own affair")
            } else if (own == "programs/zamctl" && !IsForClients(target)) {
                Refuse(file, line, name, "which clients do not have")
            }
        }
        close(file)
    }
    printf "%d includes of %d files, %d refused\n", includes, count, refused
    exit refused > 0
}
