# Shared by the SoundFont and DLS benchmarks (sourced): the alternating rounds
# of a conversion, cp of the same input and the output floor, and the medians.
#
# The floor is bench/output_floor: the files one conversion writes, created in
# the same folders and filled from the input, and nothing else; once on one
# thread, once with the waves on a second thread, and on one and on two
# threads with each file renamed into place from a temporary name, as a
# conversion does. With `peer` set to a command taking the input and a
# folder (another program that writes the same audio), it takes its turn in
# every round too.

now() { date +%s%N; }
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# alternate_rounds ROUNDS INPUT WORK PREMAKE: converts INPUT, copies it with
# cp and writes the three floors, in turn, ROUNDS times, each into a fresh
# folder under WORK (made beforehand when PREMAKE is 1). Sets convert_ns,
# copy_ns, floor1_ns, floor2_ns, flooratomic_ns and flooratomic2_ns and their medians.
alternate_rounds() {
  local rounds=$1 input=$2 work=$3 premake=$4 round start end mode
  # One conversion first: it warms the page cache and lists the floor's files.
  rm -rf "$work/out" && mkdir -p "$work/out"
  "$sorvane" "$input" "$work/out" >/dev/null
  (cd "$work/out" && find . -type f -printf '%s %P\n') >"$work/manifest"
  rm -rf "$work/out"
  convert_ns=() copy_ns=() floor1_ns=() floor2_ns=() flooratomic_ns=() flooratomic2_ns=() peer_ns=()
  for round in $(seq "$rounds"); do
    # Every round writes into folders of its own, and files are emptied, not
    # removed: on a file system without a journal (ext4 here) each file
    # created skips every inode freed in the minutes before, so removing the
    # last round's hundreds of files would add a cost of the benchmark itself.
    local out="$work/$round"
    [ "$premake" = 1 ] && mkdir "$out.out" "$out.floor1" "$out.floor2" "$out.flooratomic" "$out.flooratomic2"
    start=$(now); "$sorvane" "$input" "$out.out" >/dev/null; end=$(now)
    convert_ns+=($((end - start)))
    start=$(now); cp "$input" "$out.copy"; end=$(now)
    copy_ns+=($((end - start)))
    if [ -n "${peer:-}" ]; then
      mkdir "$out.peer"
      start=$(now); $peer "$input" "$out.peer" >/dev/null 2>&1; end=$(now)
      peer_ns+=($((end - start)))
    fi
    for mode in 1 2 atomic atomic2; do
      start=$(now); "$build/bench/output_floor" "$input" "$work/manifest" "$out.floor$mode" $mode
      end=$(now)
      eval "floor${mode}_ns+=($((end - start)))"
    done
    find "$out".* -type f -size +64k -exec truncate -s 0 {} +
  done
  convert_median=$(printf '%s\n' "${convert_ns[@]}" | median)
  copy_median=$(printf '%s\n' "${copy_ns[@]}" | median)
  floor1_median=$(printf '%s\n' "${floor1_ns[@]}" | median)
  floor2_median=$(printf '%s\n' "${floor2_ns[@]}" | median)
  flooratomic_median=$(printf '%s\n' "${flooratomic_ns[@]}" | median)
  flooratomic2_median=$(printf '%s\n' "${flooratomic2_ns[@]}" | median)
  peer_median=$( ((${#peer_ns[@]})) && printf '%s\n' "${peer_ns[@]}" | median || echo 0)
}

# Prints the medians, the ratios to cp and the spread of the conversion.
print_rounds() {
  local target=$1
  local low high
  low=$(printf '%s\n' "${convert_ns[@]}" | sort -n | head -1)
  high=$(printf '%s\n' "${convert_ns[@]}" | sort -n | tail -1)
  awk -v conv="$convert_median" -v copy="$copy_median" -v f1="$floor1_median" -v f2="$floor2_median" -v fa="$flooratomic_median" -v fa2="$flooratomic2_median" \
      -v low="$low" -v high="$high" -v rounds="${#convert_ns[@]}" -v target="$target" \
      -v peer="$peer_median" -v name="${peer:-}" 'BEGIN {
    printf "rounds            : %d, alternating\n", rounds
    printf "convert (median)  : %.3f s (%.3f to %.3f)\n", conv / 1e9, low / 1e9, high / 1e9
    printf "cp (median)       : %.3f s\n", copy / 1e9
    printf "ratio             : %.2f (target <= %s)\n", conv / copy, target
    printf "floor, 1 thread   : %.3f s, %.2f x cp (the same files, filled from the input)\n", f1 / 1e9, f1 / copy
    printf "floor, 2 threads  : %.3f s, %.2f x cp (waves on a second thread)\n", f2 / 1e9, f2 / copy
    printf "floor, atomic     : %.3f s, %.2f x cp (1 thread, each file renamed into place)\n", fa / 1e9, fa / copy
    printf "floor, atomic x2  : %.3f s, %.2f x cp (waves renamed into place on a second thread)\n", fa2 / 1e9, fa2 / copy
    printf "convert / floor   : %.2f (against the 2-thread floor), %.2f (atomic), %.2f (atomic, 2 threads)\n", conv / f2, conv / fa, conv / fa2
    if (peer > 0) printf "peer (median)     : %.3f s, %.2f x cp; convert / peer %.2f (%s)\n", peer / 1e9, peer / copy, conv / peer, name
  }'
}
