# Puts the lines of the collector's log files back into one file for each sender, to be compared with what was sent.
#   cat LOG-FILES, IN ORDER | awk -v directory=DIR -f check.awk
# A record is  [time][level][FILE:name][LINE:number] text  and a carriage return. Longer lines are several records with
# the same number, one after another among those of their sender. Exit status 1 if a sender's lines are not in order.
{
    sub(/\r$/, "")
    if (!match($0, /^\[[-0-9]+ [:.0-9]+\]\[[A-Z]+\]\[FILE:[^]]*\]\[LINE:[0-9]+\] /)) {
        print "not a record: " $0 > "/dev/stderr"
        exit 1
    }
    head = substr($0, 1, RLENGTH)
    text = substr($0, RLENGTH + 1)
    name = head
    sub(/^.*\[FILE:/, "", name)
    sub(/\].*$/, "", name)
    number = head
    sub(/^.*\[LINE:/, "", number)
    number += 0
    before = (name in last) ? last[name] : 0
    if (number != before + 1 && (number != before || before == 0)) {
        print name ": line " number " after line " before > "/dev/stderr"
        exit 1
    }
    if (before != 0 && number != before)
        printf "\n" > (directory "/" name)
    printf "%s", text > (directory "/" name)
    last[name] = number
}
END {
    for (name in last)
        printf "\n" > (directory "/" name)
}
