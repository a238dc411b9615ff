# Completion of si5351ctl for bash.
_si5351ctl()
{
    local word=${COMP_WORDS[COMP_CWORD]} words=
    case $COMP_CWORD:${COMP_WORDS[1]} in
    1:*) words='status watch rate faster slower centre enable disable step chip metrics record plot' ;;
    2:rate | 2:faster | 2:slower | 2:centre) words='hdmi analog earc' ;;
    3:rate | 2:step) words='44100 48000 88200 96000 176400 192000' ;;
    2:status) words=--json ;;
    4:step) words=--force ;;
    2:chip | 2:metrics) words=--registers ;;
    2:watch | 3:record) words=--seconds ;;
    3:chip | 3:metrics | 2:record | 2:plot) compopt -o default ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -F _si5351ctl si5351ctl
