# fish completion for velkz, unvelkz and velkcat
for program in velkz unvelkz velkcat
    complete -c $program -s z -l compress -d Compress
    complete -c $program -s d -l decompress -d Restore
    complete -c $program -s t -l test -d Check
    complete -c $program -s l -l list -d 'List sizes'
    complete -c $program -s c -l stdout -d 'Write to standard output'
    complete -c $program -s o -l output -r -F -d 'Write to a file'
    complete -c $program -s S -l suffix -x -d 'Other suffix'
    complete -c $program -s k -l keep -d 'Keep the input'
    complete -c $program -l rm -d 'Remove the input'
    complete -c $program -s f -l force -d Overwrite
    complete -c $program -s r -l recursive -d 'Files in folders'
    complete -c $program -l no-sparse -d 'No holes for zeros'
    complete -c $program -l range -x -d 'Part of the original, OFFSET:[LENGTH]'
    complete -c $program -s b -l block-size -x -a '1M 2M 4M 8M 16383K' -d 'Block size'
    complete -c $program -s 1 -l fast -d 'Fastest, largest archive'
    complete -c $program -s 9 -l best -d 'Slowest, smallest archive'
    complete -c $program -l plain -d 'No index'
    complete -c $program -s T -l threads -x -d Threads
    complete -c $program -s M -l memory-limit -x -d 'Memory limit'
    complete -c $program -l size -x -d 'Bytes of the input'
    complete -c $program -s q -l quiet -d 'No warnings'
    complete -c $program -s v -l verbose -d 'A line for each file'
    complete -c $program -l no-progress -d 'No progress'
    complete -c $program -s h -l help -d Help
    complete -c $program -s V -l version -d Version
end
