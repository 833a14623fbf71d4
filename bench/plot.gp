# docs/performance.svg, from what script/bench has measured: gnuplot -e "data='FILE'; image='FILE'" bench/plot.gp
# A line of the data is a workload and its figures, as multiples of the bare loop's: kernel and user space for the
# component, its loop, libevdev and libinput, then user space alone for the same without libinput.
set terminal svg size 960,400 font 'DejaVu Sans,13' background rgb 'white'
set output image
set datafile separator tab
set datafile missing '–'

reader = '#1b6ca8'
loop = '#3f9b5f'
libevdev = '#dd9820'
libinput = '#9a9a9a'
ink = '#303030'

set style fill solid 1 noborder
set boxwidth 0.2
set border 1 lc rgb ink
set xtics nomirror scale 0 textcolor rgb ink
unset ytics
set xrange [-0.5:3.5]
set yrange [0:*]
set offsets graph 0, graph 0, graph 0.1, graph 0
set arrow from graph 0, first 1 to graph 1, first 1 nohead lc rgb ink front
set label 2 'instructions per record, relative to the bare loop (the line)' at graph 0, graph 1.07 textcolor rgb '#606060'

set key off
set label 11 '■ the component' at screen 0.02, 0.945 textcolor rgb reader
set label 12 '■ InputLoop' at screen 0.165, 0.945 textcolor rgb loop
set label 13 '■ libevdev' at screen 0.275, 0.945 textcolor rgb libevdev
set label 14 '■ libinput' at screen 0.375, 0.945 textcolor rgb libinput
set multiplot layout 1,2 margins 0.02,0.98,0.09,0.72 spacing 0.06

set label 1 'Kernel and user space together' at graph 0, graph 1.15 font 'DejaVu Sans Bold,14' textcolor rgb ink
plot data using ($0 - 0.33):2 with boxes lc rgb reader, \
     data using ($0 - 0.11):3 with boxes lc rgb loop, \
     data using ($0 + 0.11):4 with boxes lc rgb libevdev, \
     data using ($0 + 0.33):5 with boxes lc rgb libinput, \
     data using 0:(0):xticlabels(1) with points pt 0, \
     data using ($0 - 0.33):2:(sprintf('%.2f', $2)) with labels offset 0,0.6 font ',10' textcolor rgb ink, \
     data using ($0 - 0.11):3:(sprintf('%.2f', $3)) with labels offset 0,0.6 font ',10' textcolor rgb ink, \
     data using ($0 + 0.11):4:(sprintf('%.2f', $4)) with labels offset 0,0.6 font ',10' textcolor rgb ink, \
     data using ($0 + 0.33):5:(sprintf('%.2f', $5)) with labels offset 0,0.6 font ',10' textcolor rgb ink

unset label 11
unset label 12
unset label 13
unset label 14
set label 1 'User space alone'
plot data using ($0 - 0.22):6 with boxes lc rgb reader, \
     data using 0:7 with boxes lc rgb loop, \
     data using ($0 + 0.22):8 with boxes lc rgb libevdev, \
     data using 0:(0):xticlabels(1) with points pt 0, \
     data using ($0 - 0.22):6:(sprintf('%.1f', $6)) with labels offset 0,0.6 font ',10' textcolor rgb ink, \
     data using 0:7:(sprintf('%.1f', $7)) with labels offset 0,0.6 font ',10' textcolor rgb ink, \
     data using ($0 + 0.22):8:(sprintf('%.1f', $8)) with labels offset 0,0.6 font ',10' textcolor rgb ink
