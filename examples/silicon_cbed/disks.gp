# Draws the disks of silicon_rs2.txt (1500 angstrom): each pixel stands at its reflection's position
# plus its place in the disk, both in pixels. Grey levels go by the square root of the intensity.
set term png size 640,600
set output "disks.png"
set title "Si [1 1 1], 100 kV, 1500 A"
set size ratio -1
set xrange [-90:90]
set yrange [-90:90]
set xlabel "H [pixels]"
set ylabel "G [pixels]"
set cblabel "sqrt(intensity)"
set cbrange [0:60]
set palette gray
set object 1 rectangle from graph 0,0 to graph 1,1 fillcolor rgb "black" behind
plot "< awk '\
BEGIN           { r = f = 0 } \
/^}/            { part = \"\" } \
/^(RF_INDEX|COORD|RF)\\{/ { part = $1; n = -1; next } \
/^#/            { next } \
part == \"RF_INDEX{\" && NF == 5 { x[r] = $4; y[r++] = $5 } \
part == \"COORD{\" && n++ > 0 { h[++m] = $3; g[m] = $4; inside[m] = $5; side = $3 > side ? $3 : side } \
part == \"RF{\" && n++ >= 0 { if (inside[n]) print x[f] + h[n] - side / 2, y[f] + g[n] - side / 2, $1; if (n == m) f++ } \
' silicon_rs2.txt" using 1:2:(0.5):(0.5):(sqrt($3)) with boxxyerror fillstyle solid noborder linecolor palette notitle
