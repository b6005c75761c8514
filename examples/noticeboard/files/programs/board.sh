# What list.cgi and post.cgi share. Needs a POSIX shell and the standard utilities, nothing else.
#
# Nothing that a visitor sends is ever run or used as a file name, and everything is escaped before it is shown.

set -u
LC_ALL=C # a character is a byte here
export LC_ALL
PATH=/usr/bin:/bin
export PATH
umask 022

newline='
'

# Ends the program with a page that says why.
fail() { # status, text
    page "$1" "$2"
    printf '<p>%s</p>\n' "$2"
    end_page
    exit 0
}

# Begins a page; the title is shown as text.
page() { # status, title
    printf 'Status: %s\r\nContent-Type: text/html; charset=utf-8\r\n\r\n' "$1"
    printf '<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8">\n<title>'
    escape "$2"
    printf '</title>\n<link rel="stylesheet" href="%sboard.css">\n</head>\n<body>\n<h1>' "$(escape "${home_url:-/}")"
    escape "$2"
    printf '</h1>\n'
}

end_page() {
    printf '<p><a href="%s">Front page</a></p>\n</body>\n</html>\n' "$(escape "${home_url:-/}")"
}

# Prints a text so that a browser shows it and takes none of it for HTML.
escape() { # text
    rest=$1
    while :; do
        plain=${rest%%[\&\<\>\"\']*}
        printf '%s' "$plain"
        rest=${rest#"$plain"}
        case $rest in
        '') return ;;
        '&'*) printf '&amp;' ;;
        '<'*) printf '&lt;' ;;
        '>'*) printf '&gt;' ;;
        '"'*) printf '&quot;' ;;
        *) printf '&#39;' ;;
        esac
        rest=${rest#?}
    done
}

# Reads noticeboard.conf beside this program. Its values are only ever taken as text.
read_settings() { # this program
    case $1 in
    */*) conf=${1%/*}/noticeboard.conf ;;
    *) conf=noticeboard.conf ;;
    esac
    title= data_dir= log_file= home_url= list_url=
    [ -r "$conf" ] || fail '500 No settings' 'The settings of the board cannot be read.'
    while read -r name value; do
        case $name in
        title) title=$value ;;
        data_dir) data_dir=$value ;;
        log_file) log_file=$value ;;
        home_url) home_url=$value ;;
        list_url) list_url=$value ;;
        esac
    done <"$conf"
    [ -d "$data_dir" ] || fail '500 No notices' 'The folder of the notices is missing.'
}
