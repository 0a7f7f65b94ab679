# fish completion for velkinfo
complete -c velkinfo -n __fish_use_subcommand -f -a list -d 'Show the blocks'
complete -c velkinfo -n __fish_use_subcommand -f -a test -d 'Check archives'
complete -c velkinfo -n __fish_use_subcommand -f -a salvage -d 'Restore what is intact'
complete -c velkinfo -n __fish_use_subcommand -l help -d Help
complete -c velkinfo -n __fish_use_subcommand -l version -d Version
complete -c velkinfo -n '__fish_seen_subcommand_from list' -l json -d 'For programs'
complete -c velkinfo -n '__fish_seen_subcommand_from list' -l quick -d 'From indexes or record heads'
complete -c velkinfo -n '__fish_seen_subcommand_from list' -l stages -d 'As a chart'
complete -c velkinfo -n '__fish_seen_subcommand_from salvage' -l force -d 'Overwrite the output'
complete -c velkinfo -n '__fish_seen_subcommand_from salvage' -l fill -d 'Zeros for lost blocks'
complete -c velkinfo -n '__fish_seen_subcommand_from salvage' -l no-fill -d 'No zeros by the index'
