#!/bin/bash
# Asks the completion for words: completion.sh PVZAN COMPLETION.
PATH=$(dirname "$1"):$PATH
. "$2"
asked() { # what is wanted, then the words
    COMP_WORDS=(pvzan "${@:2}") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _pvzan
    [[ " ${COMPREPLY[*]} " == *" $1 "* ]] || { echo "no $1 for: ${*:2}"; exit 1; }
}
asked windows-31j -f win && asked iso-8859-1 -t iso && asked --recursive --rec &&
    asked --json detect --j && asked detect det && asked crlf --eol c
