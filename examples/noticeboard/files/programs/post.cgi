#!/bin/sh
# Takes a notice from the form on the front page and keeps it as a file in the folder of the notices.

case $0 in
*/*) . "${0%/*}/board.sh" ;;
*) . ./board.sh ;;
esac
read_settings "$0"

longest=8000 # bytes of a request, as they come

# Turns a field as a browser sends it (+ for a blank, %XX for a byte) into text, in the variable "decoded". Zero bytes
# and carriage returns are dropped; a % without two hexadecimal digits stays what it is.
decode() { # field
    rest=$1
    decoded=
    while :; do
        plain=${rest%%[+%]*}
        decoded=$decoded$plain
        rest=${rest#"$plain"}
        case $rest in
        '') return ;;
        +*) decoded="$decoded " rest=${rest#?} ;;
        %00* | %0[Dd]*) rest=${rest#???} ;;
        %0[Aa]*) decoded=$decoded$newline rest=${rest#???} ;;
        %[0-9A-Fa-f][0-9A-Fa-f]*)
            after=${rest#???}
            code=${rest%"$after"}
            code=$((0x${code#%}))
            decoded=$decoded$(printf "\\$((code / 64))$((code / 8 % 8))$((code % 8))")
            rest=$after
            ;;
        *) decoded=$decoded% rest=${rest#?} ;;
        esac
    done
}

# The text without blank space around it, in "trimmed".
trim() { # text
    trimmed=$1
    while :; do
        case $trimmed in
        [[:space:]]*) trimmed=${trimmed#?} ;;
        *[[:space:]]) trimmed=${trimmed%?} ;;
        *) return ;;
        esac
    done
}

[ "${REQUEST_METHOD:-}" = POST ] || fail '405 Not allowed' 'Notices are pinned up from the front page.'
case ${CONTENT_LENGTH:-} in
'' | *[!0-9]* | ??????*) fail '400 Bad request' 'The request has no usable length.' ;;
esac
[ "$CONTENT_LENGTH" -le "$longest" ] || fail '413 Too long' 'The notice is too long.'

# Exactly so many bytes, for not every server closes the input behind them.
body=$(dd bs=1 count="$CONTENT_LENGTH" 2>/dev/null)

author= text=
while [ -n "$body" ]; do
    field=${body%%&*}
    case $body in
    *'&'*) body=${body#*&} ;;
    *) body= ;;
    esac
    case $field in
    name=* | text=*)
        decode "${field#*=}"
        trim "$decoded"
        ;;
    esac
    case $field in
    name=*) author=$trimmed ;;
    text=*) text=$trimmed ;;
    esac
done
author=${author%%"$newline"*} # the file keeps it in one line

[ -n "$author" ] && [ -n "$text" ] || fail '400 Incomplete' 'A notice needs a name and a text.'

# Written under a hidden name first: nobody reads half a notice. The name holds nothing that the visitor sent.
written=$(date '+%Y-%m-%d %H:%M:%S')
name=$(date '+%Y%m%d-%H%M%S')-$$
{ printf '%s\n%s\n%s\n' "$author" "$written" "$text" >"$data_dir/.$name" &&
    mv "$data_dir/.$name" "$data_dir/$name.notice"; } 2>/dev/null ||
    fail '500 Not kept' 'The notice could not be kept; the folder of the notices cannot be written.'
{ printf '%s %s\n' "$written" "$name.notice" >>"$log_file"; } 2>/dev/null

page '200 OK' 'Thank you'
printf '<p>Your notice hangs on the <a href="%s">board</a>.</p>\n' "$(escape "$list_url")"
end_page
