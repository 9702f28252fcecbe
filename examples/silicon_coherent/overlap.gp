# Draws where the disks of 0 0 0 and 1 -1 1 overlap: the pixel of 0 0 0 at H and the one of 1 -1 1 at
# H - 2 fall on one point of the detector. The parts show the probe where probe.dat has it, and moved
# by p with g.p = 1/4 and 1/2, which turns the phase between the two by -90 and 180 degrees.
set term png size 640,380
set output "overlap.png"
amplitudes = "< awk '\
BEGIN       { f = 0 } \
/^}/        { part = \"\" } \
/^(COORD|RF)\\{/ { part = $1; n = -1; next } \
/^#/        { next } \
part == \"COORD{\" && n++ > 0 { h[++m] = $1; g[m] = $2; inside[m] = $5 } \
part == \"RF{\" && n++ >= 0 { re[f, n] = $1; im[f, n] = $2; if (n == m) f++ } \
END         { shift = 40; for (k = 1; k <= m; k++) if (inside[k] && k > shift && inside[k - shift] && h[k - shift] < h[k]) \
    print h[k] / 2, g[k] / 2, re[0, k], im[0, k], re[1, k - shift], im[1, k - shift] } \
' probe_rs0.txt"
set multiplot layout 1,3 title "Si [1 1 0], 100 kV, 100 A: where the disks of 0 0 0 and 1 -1 1 overlap"
set size ratio -1
set xlabel "x [|g|]"
set ylabel "y [|g|]"
set xtics 0.1
set xrange [0.39:0.61]
set yrange [-0.35:0.35]
set cbrange [0:6000]
set palette gray
set object 1 rectangle from graph 0,0 to graph 1,1 fillcolor rgb "steelblue" behind
set style fill solid noborder
unset colorbox
do for [n = 0:2] {
    set title sprintf("g.p = %g", n / 4.0)
    c = cos(pi * n / 2)
    s = -sin(pi * n / 2)
    plot amplitudes using 1:2:(0.0125):(0.0125):(($3 + c*$5 - s*$6)**2 + ($4 + c*$6 + s*$5)**2) \
        with boxxyerror linecolor palette notitle
}
unset multiplot
