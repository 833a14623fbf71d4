set terminal svg size 960,650 noenhanced font 'DejaVu Sans,13' background rgb 'white'
set border 1 lc rgb '#303030'
set key off
set multiplot
set label 10 'nec, a line every 108 ms: uneven now, no fault as recommended' at screen 0.0208,0.9569 font 'DejaVu Sans Bold,17' textcolor rgb '#303030'
set label 11 '● a line that counts, ❙ its key-down' at screen 0.0208,0.9108 textcolor rgb '#0072b2'
set label 12 '○ a line too close to it' at screen 0.3229,0.9108 textcolor rgb '#8a8a8a'
set label 13 '× a line read too late' at screen 0.5208,0.9108 textcolor rgb '#d55e00'
set label 14 '■' at screen 0.7031,0.9108 textcolor rgb '#dde9f2'
set label 15 'held' at screen 0.7188,0.9108 textcolor rgb '#303030'
set label 16 '■' at screen 0.7708,0.9108 textcolor rgb '#9ecae1'
set label 17 'repeating' at screen 0.7865,0.9108 textcolor rgb '#303030'
set label 1 "Now: repeat 100, release 300, poll 10 ms" at screen 0.0208,0.8369 font 'DejaVu Sans Bold,14' textcolor rgb '#303030'
set label 2 "A tap gives 1 key-down; a held button repeats after 314-323 ms, 8.0-9.2 times a second. Faults: uneven." at screen 0.0208,0.8031 textcolor rgb '#606060'
set ytics ('lines sent' 3, 'button' 2, 'key-downs' 1) scale 0 textcolor rgb '#303030'
set xtics 200 nomirror out offset 0,0.4 textcolor rgb '#303030'
set xlabel 'ms of a tap' offset 0,1 textcolor rgb '#606060'
set lmargin at screen 0.1354
set rmargin at screen 0.3438
set tmargin at screen 0.7785
set bmargin at screen 0.6462
$accepted << EOD
0.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
10.000 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 10.000,1.70 to 310.010,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 310.010,1.70 to 410.000,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:560]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
unset label
unset ytics
set xlabel 'ms of a held button'
set lmargin at screen 0.3750
set rmargin at screen 0.9688
set tmargin at screen 0.7785
set bmargin at screen 0.6462
$accepted << EOD
0.000 3
324.000 3
432.000 3
540.000 3
648.000 3
756.000 3
864.000 3
1080.000 3
1188.000 3
1296.000 3
1404.000 3
1620.000 3
1728.000 3
1836.000 3
1944.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
972.000 3
1512.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
8.000 0.70 1.30
324.170 0.70 1.30
434.180 0.70 1.30
544.190 0.70 1.30
654.200 0.70 1.30
764.210 0.70 1.30
874.220 0.70 1.30
1083.230 0.70 1.30
1193.240 0.70 1.30
1303.250 0.70 1.30
1413.260 0.70 1.30
1622.270 0.70 1.30
1732.280 0.70 1.30
1842.290 0.70 1.30
1952.300 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 8.000,1.70 to 308.010,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 308.010,1.70 to 2161.310,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:2194]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
set label 1 "Recommended: repeat 75, release 300, poll 10 ms" at screen 0.0208,0.5354 font 'DejaVu Sans Bold,14' textcolor rgb '#303030'
set label 2 "A tap gives 1 key-down; a held button repeats after 314-326 ms, 9.2 times a second. No fault." at screen 0.0208,0.5015 textcolor rgb '#606060'
set ytics ('lines sent' 3, 'button' 2, 'key-downs' 1) scale 0 textcolor rgb '#303030'
set xtics 200 nomirror out offset 0,0.4 textcolor rgb '#303030'
set xlabel 'ms of a tap' offset 0,1 textcolor rgb '#606060'
set lmargin at screen 0.1354
set rmargin at screen 0.3438
set tmargin at screen 0.4769
set bmargin at screen 0.3446
$accepted << EOD
0.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
10.000 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 10.000,1.70 to 310.010,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 310.010,1.70 to 385.030,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:560]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
unset label
unset ytics
set xlabel 'ms of a held button'
set lmargin at screen 0.3750
set rmargin at screen 0.9688
set tmargin at screen 0.4769
set bmargin at screen 0.3446
$accepted << EOD
0.000 3
324.000 3
432.000 3
540.000 3
648.000 3
756.000 3
864.000 3
972.000 3
1080.000 3
1188.000 3
1296.000 3
1404.000 3
1512.000 3
1620.000 3
1728.000 3
1836.000 3
1944.000 3
NaN NaN
EOD
$skipped << EOD
108.000 3
216.000 3
NaN NaN
EOD
$lost << EOD
NaN NaN
EOD
$downs << EOD
7.330 0.70 1.30
324.060 0.70 1.30
435.170 0.70 1.30
546.280 0.70 1.30
657.390 0.70 1.30
758.400 0.70 1.30
869.510 0.70 1.30
980.620 0.70 1.30
1081.630 0.70 1.30
1192.740 0.70 1.30
1303.850 0.70 1.30
1404.860 0.70 1.30
1515.970 0.70 1.30
1627.080 0.70 1.30
1728.090 0.70 1.30
1839.200 0.70 1.30
1950.310 0.70 1.30
NaN NaN NaN
EOD
unset object
set object rectangle from 7.330,1.70 to 307.340,2.30 fc rgb '#dde9f2' fs solid noborder behind
set object rectangle from 307.340,1.70 to 2101.820,2.30 fc rgb '#9ecae1' fs solid noborder behind
set xrange [-40:2194]
set yrange [0.4:3.6]
plot $accepted with points pt 7 ps 0.9 lc rgb '#0072b2', \
     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '#8a8a8a', \
     $lost with points pt 2 ps 0.9 lw 2 lc rgb '#d55e00', \
     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '#0072b2'
unset label
set label 1 'All settings: repeats a second of a held button, and the worst fault' at screen 0.0208,0.2400 font 'DejaVu Sans Bold,14' textcolor rgb '#303030'
set label 2 'dashed: now; framed: recommended' at screen 0.9792,0.2400 right textcolor rgb '#606060'
set palette defined (0 '#ffffff', 4 '#e3eef7', 12 '#7fb6dd')
set cbrange [0:12]
unset colorbox
set border 0
set xlabel 'repeat timeout (ms)'
set ytics ('300' 0) scale 0 textcolor rgb '#303030'
set ylabel 'release timeout (ms)' textcolor rgb '#606060'
unset object
$cells << EOD
0 0 9.213 "9.2" "good" 17773
1 0 7.985 "8.0" "uneven" 10501120
EOD
set object rectangle from 0.54,-0.44 to 1.46,0.44 fs empty border rgb '#303030' lw 3 dt 2 front
set object rectangle from -0.46,-0.44 to 0.46,0.44 fs empty border rgb '#303030' lw 3 dt 1 front
set lmargin at screen 0.0938
set rmargin at screen 0.9792
set tmargin at screen 0.1600
set bmargin at screen 0.0892
set title 'polled every 10 ms' offset 0,-0.5 textcolor rgb '#303030'
set xtics ('75' 0, '100' 1) scale 0 offset 0,0.4
set xrange [-0.5:1.5]
set yrange [-0.5:0.5]
plot $cells using 1:2:(0.47):(0.45):3 with boxxyerror fs solid 1 noborder lc palette, \
     $cells using 1:2:4 with labels offset 0,0.45 textcolor rgb '#303030', \
     $cells using 1:2:5:6 with labels offset 0,-0.65 font ',10' textcolor rgb variable
unset label
unset ytics
unset ylabel
unset multiplot
