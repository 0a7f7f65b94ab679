# fish completion for VELK and velk
for program in VELK velk
    complete -c $program -n '__fish_is_nth_token 1' -f -a 'e\tCompress d\tRestore'
    # Letters may be joined, so only whole switches are offered.
    complete -c $program -n 'test (count (commandline -opc)) -ge 4' -f \
        -a '-b2048 -b16383 -a -e -f -l -z -w -t -r -d -o -s'
end
