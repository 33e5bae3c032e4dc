# fish completion for quarry: options, the files they take, and only what still fits.

# True if one of these options is on the line, in any letter case. An option whose value is being typed does
# not count yet.
function __quarry_has
    set -l typed (commandline --tokenize --cut-at-cursor | string lower)
    set -l flags -md5 -meta -raw -skip_sparse_clusters -quiet -profile -first_ntfsvol -ignore_image_size -pipe \
        -exact -volumes -verify_source -recurse -deleted -zero_unreadable -sparse -overwrite -keep_times -sha256 -resume
    if string match -q -- '-*' $typed[-1]; and not contains -- $typed[-1] $flags
        set -e typed[-1]
    end
    for option in $argv
        contains -- $option $typed; and return 0
    end
    return 1
end

function __quarry_partitions
    lsblk --noheadings --list --paths --output NAME 2>/dev/null
end

function __quarry_drives
    set -l letters a b c d e f g h i j k l m n o p q r s t
    for disk in /dev/sd[a-t]
        test -b $disk; and math (contains --index (string sub --start=-1 $disk) $letters) - 1
    end
end

# __quarry_words NUMBER: so many words are on the line, the program's name among them.
function __quarry_words
    test (count (commandline --tokenize --cut-at-cursor)) -eq $argv[1]
end

# __quarry_option CONDITION NAME ARGUMENTS...: offered once, while the condition holds.
function __quarry_option
    complete -c quarry -n "not __quarry_has -exact -$argv[2]; and $argv[1]" -o $argv[2] $argv[3..]
end

# The same, as often as one likes.
function __quarry_repeated
    complete -c quarry -n "not __quarry_has -exact; and $argv[1]" -o $argv[2] $argv[3..]
end

# Both for the exact mode, whose command line has rules of its own.
function __quarry_exact
    complete -c quarry -n "__quarry_has -exact; and not __quarry_has -$argv[2]; and $argv[1]" -o $argv[2] $argv[3..]
end
function __quarry_exact_repeated
    complete -c quarry -n "__quarry_has -exact; and $argv[1]" -o $argv[2] $argv[3..]
end

complete -c quarry -e
complete -c quarry -f

set -l no_source 'not __quarry_has -vmdk -partition -image -drivenum'
set -l lines '__quarry_has -pipe -enumdir'
set -l no_lines 'not __quarry_has -pipe -enumdir'
set -l no_object 'not __quarry_has -pipe -enumdir -src -mft -cluster'

__quarry_option '__quarry_words 1' h -d 'Usage'
__quarry_option '__quarry_words 1' exact -d 'The whole stream, or a failure that says where'
__quarry_option $no_source image -r -F -d 'Raw image of a disk or volume'
__quarry_option $no_source partition -x -a '(__quarry_partitions)' -d 'Partition by its device (root)'
__quarry_option $no_source drivenum -x -a '(__quarry_drives)' -d 'Physical drive, 0 is /dev/sda (root)'
__quarry_repeated 'not __quarry_has -partition -image -drivenum' vmdk -r -F -d 'Sparse VMDK with its snapshots'

__quarry_option '__quarry_has -vmdk -image -drivenum; and not __quarry_has -first_ntfsvol' offset -x \
    -d 'Byte where the volume begins'
__quarry_option '__quarry_has -image -drivenum; and not __quarry_has -offset' first_ntfsvol \
    -d 'First NTFS volume of the table (root)'
__quarry_option '__quarry_has -offset' ignore_image_size -d 'Take a volume that is cut short'

__quarry_option "$no_lines; and not __quarry_has -cluster" src -x -d 'Path on the volume, with :stream if wanted'
__quarry_option "$no_lines; and not __quarry_has -cluster" mft -x -d 'MFT entry number (root)'
__quarry_option $no_object cluster -x -d 'Clusters: first and count (root)'
__quarry_option $no_object pipe -d 'Paths from standard input'
__quarry_option $no_object enumdir -x -a '(__fish_complete_directories)' -d 'Paths of a directory'
__quarry_option '__quarry_has -enumdir' num_subdirs -x -d 'How deep'
__quarry_repeated $lines filter -x -d 'Only names that fit'
__quarry_repeated $lines filter_sig -x -d 'Only files with these bytes'
__quarry_repeated "$lines; and __quarry_has -filter" filter_skip -x -d 'Accepted, without effect'
__quarry_option "$lines; and __quarry_has -filter" filter_path -x -d 'Accepted, without effect'
__quarry_option $lines cmd_start_time -x -d 'Only files of this time and later'
__quarry_option $lines cmd_stop_time -x -d 'Only files up to this time'

__quarry_option true dst -r -F -d 'The copy, or a directory that ends in /'
__quarry_option true md5 -d 'Name the copy by modification time and MD5'
__quarry_option true meta -d 'Write a report of the file record'
__quarry_option true raw -d 'Clusters as stored, slack included (root)'
__quarry_option true skip_sparse_clusters -d 'Leave holes out (root)'
__quarry_option true diags -r -F -d 'Log of the run'
__quarry_option true quiet -d 'Nothing but the header'
__quarry_option true profile -d 'Print the seconds taken'
__quarry_option true dateformat -x -a 'yyyy-mm-dd yyyy/mm/dd dd/mm/yyyy mm/dd/yyyy' -d 'Date in the header'
__quarry_option true out -r -F -d 'Check that a file can be written'

set -l table '__quarry_has -image -vmdk; and not __quarry_has -verify_source'
set -l no_volume 'not __quarry_has -offset -ntfsvol -first_ntfsvol'
set -l of_copies '-src -mft -cluster -pipe -dst -tree -raw -zero_unreadable -sparse -overwrite -keep_times -md5 -sha256 -manifest'
set -l copies 'not __quarry_has -volumes -verify_source -list'
set -l files 'not __quarry_has -volumes -verify_source -list -cluster'
set -l one_file 'not __quarry_has -volumes -verify_source -list -cluster -pipe'
set -l listing '__quarry_has -list'

__quarry_exact '__quarry_words 2' h -d 'Options of the exact mode'
__quarry_exact 'not __quarry_has -partition -vmdk' image -r -F -d 'Raw image of a disk or volume'
__quarry_exact 'not __quarry_has -image -vmdk' partition -x -a '(__quarry_partitions)' -d 'Partition by its device'
__quarry_exact_repeated 'not __quarry_has -image -partition' vmdk -r -F -d 'Sparse VMDK with its snapshots'
__quarry_exact "$table; and not __quarry_has -volumes; and $no_volume; and not __quarry_has -sector_size" offset -x \
    -d 'Byte where the volume begins'
__quarry_exact "$table; and not __quarry_has -volumes; and $no_volume" ntfsvol -x -d 'Number of the volume'
__quarry_exact "$table; and not __quarry_has -volumes; and $no_volume" first_ntfsvol -d 'First NTFS volume of the table'
__quarry_exact "$table; and $no_volume; and not __quarry_has -src -mft -cluster -pipe -dst -tree -list -manifest" volumes -d 'Print the volumes'
__quarry_exact "__quarry_has -image; and $no_volume; and not __quarry_has -partition -vmdk -sector_size -volumes -list -letter $of_copies" verify_source -d 'Hold an EWF image against its digests'
__quarry_exact "$table; and not __quarry_has -offset" sector_size -x -a '512 1024 2048 4096' \
    -d 'Sectors of the partition table'
__quarry_exact $one_file src -x -d 'Path on the volume, with :stream if wanted'
__quarry_exact $one_file mft -x -d 'MFT entry number, with -sequence if wanted'
__quarry_exact "$copies; and not __quarry_has -src -mft -pipe -tree -raw -keep_times -md5 -letter" cluster -x \
    -d 'Clusters: first and count'
__quarry_exact "$files; and not __quarry_has -src -mft" pipe -d 'Objects from standard input'
__quarry_exact "$copies; and not __quarry_has -threads $of_copies" list -x -d 'Print what a directory holds'
__quarry_exact "$listing; and not __quarry_has -deleted" recurse -d 'Print the directories below too'
__quarry_exact "$listing; and not __quarry_has -recurse" deleted -d 'Print the deleted files'
__quarry_exact_repeated 'not __quarry_has -volumes -verify_source -cluster' letter -x -d 'Links to this name lead to this volume'
__quarry_exact $copies dst -r -F -d 'The copy, or a directory that ends in /'
__quarry_exact $files tree -d 'Make the directories of the path too'
__quarry_exact $files raw -d 'Clusters as stored, slack included'
__quarry_exact $copies zero_unreadable -d 'Zeros for what cannot be read'
__quarry_exact $copies sparse -d 'Leave holes where there are only zeros'
__quarry_exact $copies overwrite -d 'Replace a regular file'
__quarry_exact $files keep_times -d 'Keep the times of the file'
__quarry_exact "$files; and not __quarry_has -resume" md5 -d 'Name the copy by modification time and MD5'
__quarry_exact $copies sha256 -d 'Print the SHA-256 of the copy'
__quarry_exact $copies manifest -r -F -d 'A line of JSON for each copy'
__quarry_exact "$copies; and __quarry_has -manifest; and not __quarry_has -md5" resume -d 'Keep the complete copies of the manifest'
__quarry_exact "$copies; and __quarry_has -manifest" source_sha256 -x -d 'SHA-256 of the source, for the manifest'
__quarry_exact 'not __quarry_has -volumes -list' threads -x -d 'Workers for digests and decoding'
__quarry_exact true diags -r -F -d 'Log of the run'
__quarry_exact true quiet -d 'Errors only'

functions -e __quarry_option __quarry_repeated __quarry_exact __quarry_exact_repeated
