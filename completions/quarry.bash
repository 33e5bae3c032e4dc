# bash completion for quarry: options, the files they take, and only what still fits.

_quarry() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} word
    COMPREPLY=()

    # What is on the line, in any letter case and without the word at the cursor, each between blanks.
    local typed=' '
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        typed+="${word,,} "
    done

    compopt +o filenames 2>/dev/null
    case ${prev,,} in
        -image | -vmdk | -dst | -diags | -out)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return
            ;;
        -enumdir)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            return
            ;;
        -partition)
            local devices
            devices=$(lsblk --noheadings --list --paths --output NAME 2>/dev/null)
            mapfile -t COMPREPLY < <(compgen -W "$devices" -- "$cur")
            return
            ;;
        -drivenum)
            local disk letters=abcdefghijklmnopqrst numbers=
            for disk in /dev/sd[a-t]; do
                [ -b "$disk" ] || continue
                word=${letters%%"${disk#/dev/sd}"*}
                numbers+="${#word} "
            done
            mapfile -t COMPREPLY < <(compgen -W "$numbers" -- "$cur")
            return
            ;;
        -dateformat)
            mapfile -t COMPREPLY < <(compgen -W 'yyyy-mm-dd yyyy/mm/dd dd/mm/yyyy mm/dd/yyyy' -- "$cur")
            return
            ;;
        -sector_size)
            mapfile -t COMPREPLY < <(compgen -W '512 1024 2048 4096' -- "$cur")
            return
            ;;
        # A path on the volume, a number or a pattern: nothing on this machine tells what it may be.
        -src | -offset | -mft | -cluster | -num_subdirs | -filter | -filter_skip | -filter_path | -filter_sig | \
            -cmd_start_time | -cmd_stop_time | -ntfsvol | -letter | -list | -threads)
            return
            ;;
    esac

    # has OPTION...: true if one of them is on the line.
    has() {
        local option
        for option in "$@"; do
            [[ $typed != *" $option "* ]] || return 0
        done
        return 1
    }

    local fits
    if has -exact; then
        _quarry_exact_options
    else
        _quarry_options
    fi

    local unused=
    for word in $fits; do
        case $word in
            -vmdk | -filter | -filter_skip | -filter_sig | -letter) unused+="$word " ;;
            *) has "$word" || unused+="$word " ;;
        esac
    done
    unset -f has
    mapfile -t COMPREPLY < <(compgen -W "$unused" -- "${cur,,}")
}

# What fits beside the options on the line, in `fits`.
_quarry_options() {
    fits='-dst -md5 -meta -raw -skip_sparse_clusters -diags -quiet -profile -dateformat -out'
    [ "$COMP_CWORD" -gt 1 ] || fits+=' -h -exact'
    if ! has -vmdk -partition -image -drivenum; then
        fits+=' -image -partition -drivenum'
    fi
    has -partition -image -drivenum || fits+=' -vmdk'
    if has -vmdk -image -drivenum; then
        has -first_ntfsvol || fits+=' -offset'
        has -offset || has -vmdk || fits+=' -first_ntfsvol'
    fi
    has -offset && fits+=' -ignore_image_size'
    if has -pipe -enumdir; then
        fits+=' -filter -filter_sig -cmd_start_time -cmd_stop_time'
        has -filter && fits+=' -filter_skip -filter_path'
        has -enumdir && fits+=' -num_subdirs'
    else
        has -cluster || fits+=' -src -mft'
        has -src -mft -cluster || fits+=' -cluster -pipe -enumdir'
    fi
}

# The same for the exact mode, whose command line has rules of its own.
_quarry_exact_options() {
    fits='-diags -quiet'
    has -list -volumes || fits+=' -threads'
    (( COMP_CWORD > 2 )) || fits+=' -h'
    has -image -partition -vmdk || fits+=' -image -partition'
    has -image -partition || fits+=' -vmdk'
    if has -image -vmdk && ! has -verify_source; then
        has -offset -ntfsvol -first_ntfsvol -volumes || fits+=' -ntfsvol -first_ntfsvol'
        has -offset -ntfsvol -first_ntfsvol -volumes -sector_size || fits+=' -offset'
        has -offset -ntfsvol -first_ntfsvol -src -mft -cluster -pipe -dst -tree -list -manifest || fits+=' -volumes'
        has -offset || fits+=' -sector_size'
        has -partition -vmdk -offset -ntfsvol -first_ntfsvol -sector_size -volumes -list -src -mft -cluster -pipe -dst -tree -raw -zero_unreadable -sparse -overwrite -keep_times -md5 -sha256 -manifest -letter \
            || fits+=' -verify_source'
    fi
    has -volumes -verify_source && return
    if has -list; then
        fits+=' -letter'
        has -recurse -deleted || fits+=' -recurse -deleted'
        return
    fi
    has -src -mft -cluster -pipe -dst -tree -raw -zero_unreadable -sparse -overwrite -keep_times -md5 -sha256 -manifest -threads || fits+=' -list'
    fits+=' -dst -zero_unreadable -sparse -overwrite -sha256 -manifest'
    has -manifest && fits+=' -source_sha256'
    has -manifest && ! has -md5 && fits+=' -resume'
    has -cluster || fits+=' -tree -raw -keep_times -letter'
    has -cluster -resume || fits+=' -md5'
    has -cluster -pipe || fits+=' -src -mft'
    has -src -mft -cluster || fits+=' -pipe'
    has -src -mft -pipe -tree -raw -keep_times -md5 -letter || fits+=' -cluster'
}

complete -F _quarry quarry
