# The option --help of a script prints the comment at its top. A script sources this file with its own arguments, before
# it changes the directory.
case ${1:-} in
    -h | --help)
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
esac
