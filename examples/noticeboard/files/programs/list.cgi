#!/bin/sh
# Shows the notices, the newest first.
#
# A notice is a file in the folder of the notices: the first line is the author, the second the time, the rest the text.
# The files are named by time, so that their names sort as they were written.

case $0 in
*/*) . "${0%/*}/board.sh" ;;
*) . ./board.sh ;;
esac
read_settings "$0"

show() { # file
    IFS= read -r author && IFS= read -r written || return
    printf '<article>\n<h2>'
    escape "$author"
    printf '</h2>\n<small>'
    escape "$written"
    printf '</small>\n<p>'
    while IFS= read -r line || [ -n "$line" ]; do
        escape "$line$newline"
    done
    printf '</p>\n</article>\n'
}

page '200 OK' "$title"

set -- "$data_dir"/*.notice
[ -e "$1" ] || set --
[ $# -le 100 ] || shift $(($# - 100))

notices=
for file; do
    notices=$(show <"$file")$newline$notices
done
if [ -n "$notices" ]; then
    printf '%s' "$notices"
else
    printf '<p>There are no notices yet.</p>\n'
fi
end_page
